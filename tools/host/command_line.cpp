#include "host/command_line.h"

#include <algorithm>

namespace {

std::string refuseEmpty(const std::string& value) {
    return value.empty() ? "the value is empty" : "";
}

CLI::App* commandOf(CLI::App* app, const std::string& word) {
    for (CLI::App* command : app->get_subcommands(nullptr)) {
        if (command->get_name() == word) return command;
    }
    return app;
}

}  // namespace

void parseCommandLine(CLI::App* app, int argc, char** argv) {
    for (CLI::App* command : app->get_subcommands(nullptr)) {
        for (CLI::Option* option : command->get_options()) {
            if (option->get_items_expected_max() > 0) option->check(refuseEmpty);
        }
    }
    CLI::App* command = app;
    std::vector<std::string> words;
    std::string flagWithValue;
    bool areOptions = true;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const size_t equals = word.find('=');
        areOptions = areOptions && word != "--";
        if (command == app) command = commandOf(app, word);
        const CLI::Option* option = nullptr;
        if (areOptions && word.compare(0, 2, "--") == 0 && equals != std::string::npos)
            option = command->get_option_no_throw(word.substr(0, equals));
        if (option == nullptr || (option->get_items_expected_max() > 0 && equals + 1 < word.size())) {
            words.push_back(word);
        } else {
            words.push_back(word.substr(0, equals));
            const bool isFlag = option->get_items_expected_max() == 0;
            if (isFlag) flagWithValue = words.back();
            if (!isFlag) words.emplace_back();
        }
    }
    std::reverse(words.begin(), words.end());  // as the library requires
    app->parse(words);
    if (!flagWithValue.empty()) throw CLI::ArgumentMismatch(flagWithValue + " takes no value");
}
