#include "cli/HelpFormatter.h"

namespace uvc_host {

namespace {

constexpr size_t kOptionColumn = 23;
constexpr size_t kCommandColumn = 13;

// "  NAME  description", later description lines under the first.
std::string line(const std::string& name, const std::string& text, size_t column) {
    std::string out = "  " + name;
    out += out.size() + 1 < column ? std::string(column - out.size(), ' ') : "  ";
    for (char c : text) {
        out += c;
        if (c == '\n') {
            out += std::string(column, ' ');
        }
    }
    return out + "\n";
}

}  // namespace

std::string HelpFormatter::make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const {
    auto found = pages_.find(app);
    if (found == pages_.end() && app->get_parent()) {
        // Actions without options of their own are described by their command.
        return make_help(app->get_parent(), "", CLI::AppFormatMode::Normal);
    }
    HelpPage page = found != pages_.end() ? found->second : HelpPage{};
    std::string out = page.usage + "\n";
    if (!page.intro.empty()) {
        out += "\n" + page.intro;
    }
    std::string commands;
    for (const CLI::App* sub : app->get_subcommands({})) {
        if (!sub->get_description().empty()) {
            commands += line(sub->get_name(), sub->get_description(), kCommandColumn);
        }
    }
    if (!commands.empty()) {
        out += "\ncommands:\n" + commands;
    }
    out += "\noptions:\n";
    for (const CLI::Option* o : app->get_options()) {
        if (o->get_positional() || o == app->get_help_ptr()) {
            continue;
        }
        std::string name = o->get_name(false, true);
        if (!o->get_type_name().empty()) {
            name += " " + o->get_type_name();
        }
        out += line(name, o->get_description(), kOptionColumn);
    }
    out += line("-h, --help", "this text", kOptionColumn);
    if (!page.footer.empty()) {
        out += "\n" + page.footer;
    }
    return out;
}

}  // namespace uvc_host
