#include "host/completion.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

const char kBash[] =
    R"(# Completion for bash. Loaded by bash-completion when the program is completed for the first time.

@function() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} options='' action='file' words=''
    COMPREPLY=()
    if [[ $COMP_CWORD -eq 1 ]]; then
        mapfile -t COMPREPLY < <(compgen -W '@commands --help --version' -- "$current")
        return
    fi
    # bash makes three words of "--option=value".
    if [[ $current == = ]]; then
        current=
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $command in
@options    esac
    case "$command $previous" in
@values    esac
    if [[ " ${COMP_WORDS[*]:2:COMP_CWORD - 2} " == *' -- '* ]]; then
        action='file' words='' # a command, and its arguments
    elif [[ $current == -* ]]; then
        words=$options
    fi
    if [[ $words ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    elif [[ $action ]]; then
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -A "$action" -- "$current")
    fi
}
complete -F @function @program
)";

const char kZsh[] = R"(#compdef @program
# Completion for zsh.

_@program() {
  local curcontext=$curcontext state line
  local -a commands=(
@commands  )
  _arguments -C '(- *)--help[print the usage]' '(- *)--version[print the version]' \
    '1:command:->command' '*::argument:->argument'
  case $state in
  command) _describe command commands ;;
  argument)
    case $words[1] in
@options    esac
    ;;
  esac
}

_@program "$@"
)";

std::string filled(std::string text, const std::string& name, const std::string& value) {
    for (size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + value.size()))
        text.replace(at, name.size(), value);
    return text;
}

// What stands for a value in the help: a type's name, an argument's own name, or words as "put get".
struct Value {
    std::string name, words;
    bool isFile = false, isFolder = false;

    explicit Value(const CLI::Option& option) : name(option.get_type_name()) {
        if (const size_t list = name.find('{'); list != std::string::npos)
            words = filled(name.substr(list + 1, name.find('}') - list - 1), ",", " ");
        name.resize(std::min(name.find(':'), name.size()));
        if (name == "TEXT") name = option.get_name(option.get_positional());
        for (const char* type : {"FILE", "KEY", "PATH", "PEM"})
            isFile = isFile || name == type;
        isFolder = name == "DIR";
    }
};

// A branch of "case"; empty: files, as elsewhere.
std::string bashValue(const CLI::Option& option, const std::string& command, const std::string& previous) {
    const Value value(option);
    if (value.isFile) return "";
    const std::string action = !value.words.empty() ? "words='" + value.words + "'"
                               : value.isFolder     ? "action='directory'"
                                                    : "action=''";
    return "    '" + command + " " + previous + "') " + action + " ;;\n";
}

std::string zshValue(const CLI::Option& option) {
    const Value value(option);
    if (!value.words.empty()) return ":" + value.name + ":(" + value.words + ")";
    return ":" + value.name + (value.isFile ? ":_files" : value.isFolder ? ":_files -/" : "");
}

// One line for a word of _arguments, in quotes. The help breaks long ones.
std::string zshText(const std::string& text) {
    std::string quoted;
    for (const char c : filled(text, "\n", " ")) {
        if (strchr("[]:\\", c) != nullptr) quoted += '\\';
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return quoted;
}

std::vector<std::string> namesOf(const CLI::Option& option) {
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

std::string zshOption(const CLI::Option& option, const std::string& name) {
    const bool hasValue = option.get_items_expected_max() > 0;
    const bool isRepeatable = option.get_trigger_on_parse() || option.get_items_expected_max() > 1;
    std::string others;
    for (const CLI::Option* other : option.get_excludes())
        others += (others.empty() ? "(" : " ") + other->get_name();
    return "'" + others + (others.empty() ? "" : ")") + (isRepeatable ? "*" : "") + name +
           (hasValue && name.size() > 2 ? "=" : "") + "[" + zshText(option.get_description()) + "]" +
           (hasValue ? zshValue(option) : "") + "'";
}

std::string zshCommand(const CLI::App& command) {
    std::string text = "    " + command.get_name() + ")\n      _arguments -S";
    size_t position = 0;
    for (const CLI::Option* option : command.get_options()) {
        for (const std::string& name : namesOf(*option))
            text += " \\\n        " + zshOption(*option, name);
        if (option->get_positional())
            text += " \\\n        '" + std::to_string(++position) + zshValue(*option) + "'";
    }
    if (command.get_description().find(" -- ") != std::string::npos)
        text += " \\\n        '*::command:_normal'";
    return text + "\n      ;;\n";
}

std::string zshCompletion(const CLI::App& app) {
    std::string commands, options;
    for (const CLI::App* command : app.get_subcommands(nullptr)) {
        commands += "    '" + command->get_name() + ":" + zshText(command->get_description()) + "'\n";
        options += zshCommand(*command);
    }
    return filled(filled(kZsh, "@commands", commands), "@options", options);
}

std::string bashCompletion(const CLI::App& app) {
    std::string commands, options, values;
    for (const CLI::App* command : app.get_subcommands(nullptr)) {
        const std::string name = command->get_name();
        std::string words;
        bool isFirst = true;
        for (const CLI::Option* option : command->get_options()) {
            for (const std::string& word : option->get_lnames())
                words += " --" + word;
            if (option->get_items_expected_max() == 0) continue;
            if (!option->get_positional()) values += bashValue(*option, name, option->get_name());
            if (option->get_positional() && isFirst) values += bashValue(*option, name, name);
            isFirst = isFirst && !option->get_positional();
        }
        commands += (commands.empty() ? "" : " ") + name;
        options += "    " + name + ") options='" + words.substr(1) + "' ;;\n";
    }
    const std::string function = "_" + filled(app.get_name(), "-", "_");
    const std::string text = filled(filled(kBash, "@function", function), "@commands", commands);
    return filled(filled(text, "@options", options), "@values", values);
}

}  // namespace

int printCompletion(const CLI::App& app, const std::string& shell) {
    if (shell != "bash" && shell != "zsh") return 2;
    const std::string text = shell == "bash" ? bashCompletion(app) : zshCompletion(app);
    fputs(filled(text, "@program", app.get_name()).c_str(), stdout);
    return 0;
}
