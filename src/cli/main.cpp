#include "cli/command.h"
#include "cli/command_line.h"

#include <cstdio>
#include <iostream>

int main(int argc, char** argv) {
    try {
        return lumivesper::cli::runCommandLine({argv + 1, argv + argc}, std::cout, std::cerr);
    } catch (...) {
        // Only copying the arguments can fail here (out of memory); the run itself never throws.
        std::fputs("lumivesper-cli: out of memory\n", stderr);
        return lumivesper::cli::exitFailure;
    }
}
