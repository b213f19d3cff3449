// The simple commands of a script that can be determined without running it.

#pragma once

#include <string>
#include <vector>

/// Stands for the part of a word that is unknown before the script runs.
constexpr char kUnknownPart = '\1';

struct ShellCommand {
    std::vector<std::string> words;    // without quotes; a variable that holds a literal stands as that
    std::vector<std::string> targets;  // files that its output goes to
    size_t line;                       // of the script, from 1
};

struct ShellVariable {
    std::string name;
    size_t line;
};

struct ShellScript {
    std::vector<ShellCommand> commands;  // those of substitutions too
    std::vector<ShellVariable> unset;    // uses of a variable that nothing sets, as far as that is certain
    std::string code;  // its lines without comments, here-documents and what is quoted, but for expansions
    size_t openDocument = 0;  // the last line of a here-document that has no end; 0: there is none
};

/// Reads a script by the rules for words and quotes. It knows little grammar: doubtful cases stay unknown.
ShellScript readScript(const std::string& script);
