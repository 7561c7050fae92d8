#include "audio/AudioExporter.h"

#include "base/Text.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace sonvale {

std::vector<ExportJob> regionExportJobs(const std::string& trackName,
                                        const std::vector<Marker>& regions, ExportFormat format,
                                        const std::filesystem::path& folder) {
    // Built by appending: GCC 12 warns falsely (-Wrestrict) about "." + std::string.
    std::string extension = ".";
    extension += fileExtension(format);
    std::set<std::string> used;
    std::vector<ExportJob> jobs;
    for (const Marker& marker : regions) {
        if (!marker.end) continue;
        std::string base = trackName + " - " + marker.name;
        std::replace(base.begin(), base.end(), '/', '-');
        std::replace(base.begin(), base.end(), ':', '-');
        std::string candidate = base;
        for (int counter = 1;;) {
            std::error_code ec;
            const bool taken = used.count(lowercased(candidate)) > 0 ||
                               std::filesystem::exists(folder / (candidate + extension), ec);
            if (!taken) break;
            candidate = base + " " + std::to_string(++counter);
        }
        used.insert(lowercased(candidate));
        jobs.push_back({{marker.start, *marker.end}, folder / (candidate + extension)});
    }
    return jobs;
}

std::filesystem::path uniqueWAV(const std::filesystem::path& folder, const std::string& name) {
    std::error_code ec;
    auto candidate = folder / (name + ".wav");
    for (int counter = 2; std::filesystem::exists(candidate, ec); ++counter)
        candidate = folder / (name + " " + std::to_string(counter) + ".wav");
    return candidate;
}

} // namespace sonvale
