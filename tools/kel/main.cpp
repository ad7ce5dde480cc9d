// kel: files, settings, monitor files and servers from the command line, by means of the library's public
// headers.
//
// The groups of commands enter themselves (command.h); here the command line is read, the command that it
// names is run, and what goes wrong becomes one line on standard error and an exit code.
#include <algorithm>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <iostream>
#include <new>

#include "channels.h"
#include "command.h"
#include "progress.h"
#include "text.h"

namespace {

using namespace tool;

constexpr const char *footer = R"(Exit codes: 0 done, 1 failed or not found, 2 wrong usage.
`kel COMMAND --help` explains a command.)";

// Arguments that have a text of their own are called by it.
class Help : public CLI::Formatter {
public:
    Help() {
        label("REQUIRED", "");
        column_width(34);
    }
    std::string make_option_usage(const CLI::Option *option) const override {
        const std::string &text = option->get_option_text();
        return text.empty() ? Formatter::make_option_usage(option) : text;
    }
    std::string make_option_name(const CLI::Option *option, bool is_positional) const override {
        const std::string &text = option->get_option_text();
        return text.empty() ? Formatter::make_option_name(option, is_positional) : text;
    }
    // The type alone, or the words to choose from; nothing about other options.
    std::string make_option_opts(const CLI::Option *option) const override {
        std::string type = option->get_type_name();
        std::size_t colon = type.find(':');
        type = colon == 0 ? type.substr(1) : type.substr(0, colon);
        if (type.empty() || !option->get_option_text().empty()) return "";
        const std::string &preset = option->get_default_str();
        return " " + type + (preset.empty() ? "" : " (" + preset + ")");
    }
};

ExitCode Misused(const std::string &command, std::string_view mistake) {
    std::cerr << command << ": " << Printable(mistake) << "\nTry '" << command << " --help'.\n";
    return wrong_usage;
}

// A word that is none of the command's is told before what is missing: the one is often meant to be the
// other.
ExitCode Misused(const CLI::App &app, const CLI::ParseError &error) {
    const CLI::App *command = &app;
    std::string names = "kel";
    std::vector<std::string> unknown = app.remaining();
    while (!command->get_subcommands().empty() && unknown.empty()) {
        command = command->get_subcommands().front();
        names += " " + command->get_name();
        unknown = command->remaining();
    }
    if (!unknown.empty()) {
        bool option = unknown.front().starts_with('-');
        bool group = command->get_require_subcommand_min() > 0;
        const char *what = option ? "no such option: " : group ? "no such command: " : "not expected: ";
        return Misused(names, what + Unsheltered(unknown.front()));
    }
    std::string mistake = error.what();
    std::size_t argument = mistake.find(": ");
    if (argument != std::string::npos && dynamic_cast<const CLI::ArgumentMismatch *>(&error))
        mistake = mistake.substr(0, argument) + ": its value is missing";
    else if (argument != std::string::npos)
        mistake = mistake.substr(0, argument + 2) + Unsheltered(mistake.substr(argument + 2));
    return Misused(names, mistake);
}

ExitCode Run() {
    try {
        std::cout.exceptions(std::ios_base::badbit);
        ExitCode code = ChosenAction()();
        std::cout.flush();
        return code;
    } catch (const std::ios_base::failure &) {
        int error = errno;
        std::cout.exceptions(std::ios_base::goodbit);
        Complain(std::string("standard output: ") + std::strerror(error));
    } catch (const Failure &failure) {
        Complain(failure.what());
    } catch (const Misuse &mistake) {
        return Misused(CommandName(), mistake.what());
    } catch (const Progress::Interrupted &) {
        Complain("interrupted");
        Interruption::Die(Interruption::Signal());
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        Complain(Explained(error));
    } catch (const std::bad_alloc &) {
        Complain("not enough memory");
    } catch (const std::exception &error) {
        Complain(error.what());
    }
    return failed;
}

}  // namespace

int main(int count, char **arguments) {
    std::setlocale(LC_CTYPE, "");
    std::ios::sync_with_stdio(false);
    ListenToReports();
    TakeStandardChannels();

    CLI::App app("Files, settings, monitor files and servers from the command line.", "kel");
    app.set_version_flag("--version", "kel " KEL_VERSION);
    app.set_help_all_flag("--help-all", "Print the help of all commands and exit");
    app.formatter(std::make_shared<Help>());
    app.footer(footer);
    app.require_subcommand(1);
    for (const Group *group : Groups())
        group->maker(*app.add_subcommand(group->name, group->description));

    try {
        std::vector<std::string> line = Sheltered(count, arguments);
        std::reverse(line.begin(), line.end());  // as CLI11 wants it
        app.parse(std::move(line));
    } catch (const CLI::Success &help) {
        app.exit(help);
        return std::cout.flush() ? done : failed;
    } catch (const CLI::ParseError &error) {
        return Misused(app, error);
    }
    return Run();
}
