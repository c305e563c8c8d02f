#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <csv.h>
#include <expat.h>

#include "io/output_sink.h"

// Sinks that hand a report to a reader of its form while it is written, and end the program where
// that reader does not take it.
namespace fuzz {

[[noreturn]] inline void refuse(const char* why)
{
    std::fprintf(stderr, "a reader refuses the report: %s\n", why);
    std::abort();
}

// A document that an XML parser takes.
class xml_reader : public io::output_sink {
public:
    ~xml_reader() override
    {
        flush();
        take("", true);
        XML_ParserFree(parser_);
    }

private:
    bool write_block(std::string_view block) override
    {
        take(block, false);
        return true;
    }
    void take(std::string_view block, bool is_last)
    {
        if (XML_Parse(parser_, block.data(), static_cast<int>(block.size()), is_last) ==
            XML_STATUS_ERROR) {
            refuse(XML_ErrorString(XML_GetErrorCode(parser_)));
        }
    }

    XML_Parser parser_ = XML_ParserCreate(nullptr);
};

// Rows, all of one length, that a strict CSV reader takes.
class csv_reader : public io::output_sink {
public:
    csv_reader()
    {
        if (csv_init(&parser_, CSV_STRICT | CSV_STRICT_FINI) != 0) {
            std::abort();
        }
    }
    ~csv_reader() override
    {
        flush();
        if (csv_fini(&parser_, on_field, on_row, this) != 0) {
            refuse("it ends inside a field");
        }
        csv_free(&parser_);
    }

private:
    bool write_block(std::string_view block) override
    {
        if (csv_parse(&parser_, block.data(), block.size(), on_field, on_row, this) !=
            block.size()) {
            refuse(csv_strerror(csv_error(&parser_)));
        }
        return true;
    }
    static void on_field(void*, std::size_t, void* self)
    {
        ++static_cast<csv_reader*>(self)->fields_;
    }
    static void on_row(int, void* self)
    {
        auto& own = *static_cast<csv_reader*>(self);
        if (own.length_ != 0 && own.fields_ != own.length_) {
            refuse("two rows of two lengths");
        }
        own.length_ = own.fields_;
        own.fields_ = 0;
    }

    csv_parser parser_{};
    std::size_t fields_ = 0;
    std::size_t length_ = 0;
};

} // namespace fuzz
