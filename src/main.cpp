#include <exception>

#include "front/run_driver.h"
#include "io/notice.h"
#include "platform/arguments.h"

int main(int count, char** arguments)
{
    try {
        return front::run_driver(platform::program_arguments(count, arguments));
    } catch (const std::exception& fault) {
        io::error_notices().fail("quilt: %s\n", fault.what());
    }
    return -1;
}
