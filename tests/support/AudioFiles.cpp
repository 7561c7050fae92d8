#include "support/AudioFiles.h"

#include "audio/AudioLoader.h"

#include <sys/mount.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace sonvale::test {

std::filesystem::path fixture(const std::string& name) {
    return std::filesystem::path(SONVALE_FIXTURE_DIR) / name;
}

std::vector<float> ffmpegDecode(const std::string& name) {
    const auto path = fixture(name + ".f32");
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("no reference decode " + path.string());
    in.seekg(0, std::ios::end);
    const auto bytes = size_t(in.tellg());
    in.seekg(0);
    std::vector<float> samples(bytes / sizeof(float));
    in.read(reinterpret_cast<char*>(samples.data()),
            std::streamsize(samples.size() * sizeof(float)));
    return samples;
}

std::string commandOutput(const std::string& command) {
    std::string output;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (!pipe) return output;
    char buffer[4096];
    size_t got;
    while ((got = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.append(buffer, got);
    ::pclose(pipe);
    return output;
}

AudioDataPtr makeAudio(double sampleRate, const std::vector<std::vector<float>>& channels) {
    const int64_t frames = channels.empty() ? 0 : int64_t(channels[0].size());
    std::vector<FloatBuffer> buffers;
    for (const auto& channel : channels) {
        FloatBuffer buffer(frames);
        std::copy(channel.begin(), channel.end(), buffer.data());
        buffers.push_back(std::move(buffer));
    }
    return AudioLoader::makeAudioData(sampleRate, std::move(buffers), frames);
}

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "sonvale-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    folder = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ec;
    // Unreadable folders made by a test must be opened up again before removal.
    for (auto it = std::filesystem::recursive_directory_iterator(
             folder, std::filesystem::directory_options::skip_permission_denied, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec))
        std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(folder, ec);
}

SmallDisk::SmallDisk(int64_t bytes) {
    const std::string options = "size=" + std::to_string(bytes);
    mounted = ::mount("tmpfs", root.path().c_str(), "tmpfs", 0, options.c_str()) == 0;
    if (mounted) return;
    std::signal(SIGXFSZ, SIG_IGN); // the write fails instead of ending the process
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    previousLimit = limit.rlim_cur;
    limit.rlim_cur = rlim_t(bytes);
    setrlimit(RLIMIT_FSIZE, &limit);
}

SmallDisk::~SmallDisk() {
    if (mounted) {
        ::umount(root.path().c_str());
        return;
    }
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = rlim_t(previousLimit);
    setrlimit(RLIMIT_FSIZE, &limit);
}

} // namespace sonvale::test
