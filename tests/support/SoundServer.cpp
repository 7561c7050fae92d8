#include "support/SoundServer.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace sonvale::test {

namespace {
std::atomic<int64_t> framesRead{0};
}

std::optional<std::string> useSoundServer() {
    // Under ctest, the server of this run lives in a folder named after ctest, our parent; run
    // by hand, the test uses a server started by hand in the build tree's folder.
    std::string dir = SONVALE_SOUND_SERVER_DIR;
    if (std::string run = dir + "/run-" + std::to_string(getppid()); access(run.c_str(), F_OK) == 0)
        dir = run;
    if (std::ifstream unavailable(dir + "/unavailable"); unavailable) {
        std::stringstream reason;
        reason << unavailable.rdbuf();
        return "no sound server: " + reason.str();
    }
    std::ifstream env(dir + "/env");
    if (!env)
        return "no sound server running (the sound_server test fixture starts one: "
               "scripts/sound-server.sh start " +
               dir + ")";
    std::string line;
    while (std::getline(env, line)) {
        auto equals = line.find('=');
        if (equals != std::string::npos)
            setenv(line.substr(0, equals).c_str(), line.substr(equals + 1).c_str(), 1);
    }
    if (std::system("pactl info >/dev/null 2>&1") != 0)
        return "the sound server in " + dir + " does not answer";
    return std::nullopt;
}

MonitorRecorder::~MonitorRecorder() { stop(); }

void MonitorRecorder::start() {
    int fds[2];
    if (pipe(fds) != 0) throw std::runtime_error("pipe failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    posix_spawn_file_actions_addclose(&actions, fds[1]);
    const char* argv[] = {"parec",
                          "--raw",
                          "--format=float32le",
                          "--rate=48000",
                          "--channels=2",
                          "--latency-msec=10",
                          "-d",
                          "sonvale_test.monitor",
                          nullptr};
    int error = posix_spawnp(&pid, "parec", &actions, nullptr, const_cast<char**>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    if (error != 0) {
        close(fds[0]);
        pid = -1;
        throw std::runtime_error("parec could not run");
    }
    pipeRead = fds[0];
    framesRead = 0;
    reader = std::thread([this] {
        char buffer[8192];
        std::string pending;
        for (;;) {
            ssize_t n = read(pipeRead, buffer, sizeof buffer);
            if (n <= 0) break;
            pending.append(buffer, size_t(n));
            size_t whole = pending.size() / sizeof(float) * sizeof(float);
            size_t old = interleaved.size();
            interleaved.resize(old + whole / sizeof(float));
            std::memcpy(interleaved.data() + old, pending.data(), whole);
            pending.erase(0, whole);
            framesRead = int64_t(interleaved.size() / 2);
        }
    });
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (framesRead < 480 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (framesRead < 480) {
        stop();
        throw std::runtime_error("parec delivered nothing from sonvale_test.monitor");
    }
}

void MonitorRecorder::stop() {
    if (pid > 0) {
        kill(pid, SIGTERM);
        if (reader.joinable()) reader.join();
        waitpid(pid, nullptr, 0);
        pid = -1;
    }
    if (reader.joinable()) reader.join();
    if (pipeRead >= 0) {
        close(pipeRead);
        pipeRead = -1;
    }
    left.clear();
    right.clear();
    for (size_t i = 0; i + 1 < interleaved.size(); i += 2) {
        left.push_back(interleaved[i]);
        right.push_back(interleaved[i + 1]);
    }
}

} // namespace sonvale::test
