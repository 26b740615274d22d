#pragma once

#include <CLI/CLI.hpp>

#include <map>
#include <string>

namespace uvc_host {

// What a help page shows besides the options.
struct HelpPage {
    std::string usage;
    std::string intro;
    std::string footer;
};

// Help pages in the tool's own layout: usage lines, what the command does,
// its options with their values, then notes and examples. A command without
// a page of its own (control get) shows its parent's.
class HelpFormatter : public CLI::Formatter {
public:
    void add(const CLI::App* app, HelpPage page) { pages_[app] = std::move(page); }
    std::string make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const override;

private:
    std::map<const CLI::App*, HelpPage> pages_;
};

}  // namespace uvc_host
