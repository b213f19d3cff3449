// CLI11 says first what is missing, although a mistyped option is why it is.

#include "usage_fault.h"

#include "nearest_word.h"

#include <algorithm>
#include <vector>

namespace {

bool isOption(const std::string& word) {
    return word.size() > 1 && word.front() == '-';
}

std::vector<std::string> optionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back(name);
    }
    return names;
}

std::vector<std::string> commandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands(nullptr))
        names.push_back(command->get_name());
    return names;
}

std::string unknownOption(const std::string& word, const CLI::App& command) {
    const std::string given = word.substr(0, word.find('='));
    const std::string nearest = nearestWord(given.substr(given.find_first_not_of('-')), optionNames(command));
    return "unknown option " + given + (nearest.empty() ? "" : "; did you mean --" + nearest + "?");
}

std::string unknownCommand(const std::string& word, const CLI::App& app) {
    const std::string nearest = nearestWord(word, commandNames(app));
    return "unknown command \"" + word + "\"" +
           (nearest.empty() ? "" : "; did you mean \"" + nearest + "\"?");
}

}  // namespace

std::string usageMessage(const CLI::App& app, const CLI::ParseError& error) {
    const std::vector<CLI::App*> given = app.get_subcommands();
    const std::vector<std::string> unread = app.remaining(true);
    const auto option = std::find_if(unread.begin(), unread.end(), isOption);
    if (option != unread.end()) return unknownOption(*option, given.empty() ? app : *given.front());
    if (given.empty()) {
        if (!unread.empty()) return unknownCommand(unread.front(), app);
        return "a command is required: " + CLI::detail::join(commandNames(app), ", ");
    }
    if (!unread.empty()) return "one argument too many: \"" + unread.front() + "\"";
    return error.what();
}

std::string givenCommand(const CLI::App& app) {
    const std::vector<CLI::App*> given = app.get_subcommands();
    return given.empty() ? "" : " " + given.front()->get_name();
}
