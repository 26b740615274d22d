#include "io/NodeDiscovery.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

namespace uvc_gadget {

namespace fs = std::filesystem;

namespace {

std::string firstLine(const fs::path& path) {
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

}  // namespace

NodeDiscovery::NodeDiscovery(std::string sysClassDir, std::string configfsRoot, std::string devDir)
    : sysClassDir_(std::move(sysClassDir)),
      configfsRoot_(std::move(configfsRoot)),
      devDir_(std::move(devDir)) {}

std::string NodeDiscovery::functionDirOf(const std::string& functionName) const {
    if (functionName.empty() || functionName.find('/') != std::string::npos)
        return "";
    std::error_code ec;
    std::string found;
    std::vector<fs::path> gadgets;
    for (fs::directory_iterator it(fs::path(configfsRoot_) / "usb_gadget", ec), end;
         !ec && it != end; it.increment(ec))
        gadgets.push_back(it->path());
    std::sort(gadgets.begin(), gadgets.end());
    for (const fs::path& gadget : gadgets) {
        const fs::path dir = gadget / "functions" / functionName;
        if (!fs::is_directory(dir, ec))
            continue;
        if (!firstLine(gadget / "UDC").empty())
            return dir.string();
        if (found.empty())
            found = dir.string();
    }
    return found;
}

std::string NodeDiscovery::functionNameOf(const std::string& videoPath) const {
    return firstLine(fs::path(sysClassDir_) / fs::path(videoPath).filename() / "function_name");
}

std::vector<GadgetNode> NodeDiscovery::find(const std::string& list,
                                            std::vector<std::string>& notes) const {
    std::vector<std::pair<std::string, std::string>> entries;  // video path, function dir
    if (!list.empty()) {
        std::istringstream in(list);
        std::string item;
        while (std::getline(in, item, ',')) {
            if (item.empty())
                continue;
            const size_t eq = item.find('=');
            if (eq == std::string::npos) {
                entries.emplace_back(item, functionDirOf(functionNameOf(item)));
            } else {
                entries.emplace_back(item.substr(0, eq), item.substr(eq + 1));
            }
        }
    } else {
        std::vector<std::pair<std::string, std::string>> named;  // function name, node
        std::error_code ec;
        for (fs::directory_iterator it(sysClassDir_, ec), end; !ec && it != end; it.increment(ec)) {
            const std::string name = firstLine(it->path() / "function_name");
            if (!name.empty())
                named.emplace_back(name, it->path().filename().string());
        }
        std::sort(named.begin(), named.end());
        for (const auto& [name, node] : named)
            entries.emplace_back((fs::path(devDir_) / node).string(), functionDirOf(name));
    }

    std::vector<GadgetNode> nodes;
    for (const auto& [video, dir] : entries) {
        if (dir.empty()) {
            notes.push_back(video + ": no configfs function directory found, left out");
            continue;
        }
        if (nodes.size() == kMaxStreams) {
            notes.push_back(video + ": more than " + std::to_string(kMaxStreams) +
                            " UVC functions, left out");
            continue;
        }
        GadgetNode node;
        node.videoPath = video;
        node.functionDir = dir;
        node.streamId = static_cast<uint8_t>(nodes.size() / 4);
        node.streamIdx = static_cast<uint8_t>(nodes.size() % 4);
        nodes.push_back(std::move(node));
    }
    return nodes;
}

}  // namespace uvc_gadget
