// mirror: files, settings and monitor files at work in two processes. One copies a tree and says how far it
// is, the other follows.
#include <charconv>
#include <cstring>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "copy.h"
#include "progress.h"

namespace {

enum ExitCode { done = 0, failed = 1, wrong_usage = 2 };

constexpr const char *usage = R"(Usage: mirror copy [--merge | --replace] FROM TO STATE
       mirror follow [--patience SECONDS] FILE

mirror copy makes TO a copy of the file or folder FROM, verifies it by checksum, and keeps in the folder STATE
how far it is (progress.mon, a monitor file) and what it did (mirror.conf). Its settings are in the registry of
the user, in the key Examples\Mirror: Links is "keep" or "skip", Verify is 1 or 0.

  --merge    put what is in FROM into a folder TO that exists
  --replace  remove a TO that exists first. Without either option such a TO is an error

mirror follow prints what is in the monitor file FILE until the copy has ended.

  --patience SECONDS  give up when nothing changes for so long; 30 when not given
  --help              print this

Exit code: 0 when all went well, 1 when something failed, 2 for a wrong command line.
)";

struct Options {
    std::string command;
    std::vector<std::string> operands;
    fsRecursiveCopyMode existing = fsForceNew;
    int patience = 30;  // seconds
    bool help = false;
    std::string mistake;
};

void TakePatience(Options &options, std::string_view text) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), options.patience);
    if (error != std::errc() || end != text.data() + text.size() || options.patience < 1)
        options.mistake = "--patience needs a number of seconds, not \"" + std::string(text) + "\"";
}

Options Parse(int count, char **arguments) {
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::string_view argument = arguments[i];
        if (argument == "--help" || argument == "-h")
            options.help = true;
        else if (argument == "--merge")
            options.existing = fsMerge;
        else if (argument == "--replace")
            options.existing = fsReplace;
        else if (argument == "--patience")
            TakePatience(options, i + 1 < count ? arguments[++i] : "");
        else if (argument.starts_with('-'))
            options.mistake = "there is no option " + std::string(argument);
        else if (options.command.empty())
            options.command = argument;
        else
            options.operands.emplace_back(argument);
    }
    if (options.help || !options.mistake.empty()) return options;
    const std::size_t wanted = options.command == "copy" ? 3 : options.command == "follow" ? 1 : 0;
    if (wanted == 0)
        options.mistake =
            options.command.empty() ? "copy or follow?" : "there is no command " + options.command;
    else if (options.operands.size() != wanted)
        options.mistake = options.command + (wanted == 3 ? " needs FROM, TO and STATE" : " needs one FILE");
    return options;
}

}  // namespace

int main(int count, char **arguments) {
    const Options options = Parse(count, arguments);
    if (options.help) {
        std::cout << usage;
        return std::cout.flush() ? done : failed;
    }
    if (!options.mistake.empty()) {
        std::cerr << "mirror: " << options.mistake << '\n' << usage;
        return wrong_usage;
    }
    try {
        const auto &names = options.operands;
        const bool well = options.command == "copy" ? Copy({names[0], names[1], names[2], options.existing})
                                                    : Follow(names[0], options.patience);
        return well && std::cout.flush() ? done : failed;
    } catch (...) {
        std::cerr << "mirror: " << WhatHappened() << '\n';
        return failed;
    }
}
