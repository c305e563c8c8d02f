// Writes what is told of each option, a line of fields with TABs between them, for docs/make_pages.py.

#include <cstdio>
#include <string_view>

#include "front/option_words.h"
#include "front/version.h"

int main()
{
    const auto field = [](std::string_view text, char end) {
        std::fwrite(text.data(), 1, text.size(), stdout);
        std::fputc(end, stdout);
    };
    field(front::version, '\n');
    for (const front::option_words& option : front::all_option_words()) {
        for (const std::string_view text :
             {option.name, option.group, option.argument, option.effect, option.detail,
              option.otherwise, option.conflicts}) {
            field(text, '\t');
        }
        field(option.example, '\n');
    }
}
