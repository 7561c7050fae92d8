#include "support/CliCommand.h"

#include <array>
#include <cstdio>
#include <sys/wait.h>

namespace sonvale::test {

CliOutput runCli(const std::string& arguments) {
    CliOutput run;
    const std::string command = std::string(SONVALE_CLI_PATH) + " " + arguments + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return run;
    std::array<char, 4096> buffer;
    while (size_t n = std::fread(buffer.data(), 1, buffer.size(), pipe))
        run.output.append(buffer.data(), n);
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

} // namespace sonvale::test
