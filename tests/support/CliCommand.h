#pragma once

#include <filesystem>
#include <string>

namespace sonvale::test {

// What a run of the built sonvale-cli printed (standard output and error together) and
// its exit status (-1 when it did not exit normally).
struct CliOutput {
    int status = -1;
    std::string output;
};

// Runs sonvale-cli through the shell; `arguments` is shell text, so quote what needs it.
CliOutput runCli(const std::string& arguments);

// A path as one shell word (the tests' folders hold no quotes).
inline std::string quoted(const std::filesystem::path& path) { return "'" + path.string() + "'"; }

} // namespace sonvale::test
