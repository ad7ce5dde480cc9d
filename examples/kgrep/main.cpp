// kgrep: searches files and folders with the match modes of the string library, and replaces what it finds.
#include <cerrno>
#include <clocale>
#include <cstring>
#include <iostream>
#include <new>

#include "options.h"
#include "printing.h"
#include "progress.h"
#include "replacing.h"
#include "walking.h"

namespace {

enum ExitCode { found = 0, not_found = 1, failed = 2 };

bool NamesAreShown(const Options &options) {
    return options.names.value_or(options.files != std::vector<std::string>{"-"});
}

bool ColorIsShown(const Options &options) {
    return options.color == Color::always || (options.color == Color::automatic && IsTerminal("/dev/stdout"));
}

class Run {
public:
    explicit Run(const Options &options)
        : m_options(options),
          m_pattern(options.pattern, options.mode, options.whole_line),
          m_printer(options, m_pattern, m_output, NamesAreShown(options), ColorIsShown(options)),
          m_progress(options.progress) {}

    ExitCode All() {
        Walk walk(m_options);
        walk.file = [this](const std::string &path) { return File(path); };
        walk.failure = [this](const std::string &path, const std::string &reason) { Complain(path, reason); };
        walk.Run();
        m_progress.Wipe();
        if (m_options.total) m_output.text += "total:" + std::to_string(m_lines) + '\n';
        m_output.Write();
        if (m_failed && !(m_found && m_options.show == Show::nothing)) return failed;
        return m_found ? found : not_found;
    }

private:
    bool File(const std::string &path) {
        try {
            m_options.in_place ? Replace(path) : Search(path);
        } catch (const Unreadable &error) {
            Complain(path, error.reason);
        } catch (const NotReplaced &error) {
            Complain(path, error.reason);
        } catch (const std::bad_alloc &) {
            Complain(path, "there is not enough memory for it");
        }
        if (!m_output.text.empty()) m_progress.Wipe();
        m_progress.Step(m_lines);
        return !(m_found && m_options.show == Show::nothing && !m_options.total && !m_options.in_place);
    }

    void Search(const std::string &path) {
        Input input(path);
        m_printer.BeginFile(path == "-" ? "(standard input)" : path, input.IsStream());
        VisitLines(input, m_blocks, m_pattern, m_printer);
        std::uint64_t lines = m_printer.EndFile();
        Count(lines, m_options.show == Show::other_files ? lines == 0 : lines > 0);
    }

    void Replace(const std::string &path) {
        Input input(path);
        Replacer replacer(m_options, m_pattern, path);
        VisitLines(input, m_blocks, m_pattern, replacer);
        std::uint64_t lines = replacer.Finish();
        Count(lines, lines > 0);
    }

    void Count(std::uint64_t lines, bool found_here) {
        m_lines += lines;
        m_found = m_found || found_here;
    }

    void Complain(const std::string &path, const std::string &reason) {
        m_failed = true;
        m_output.Write();
        m_progress.Wipe();
        std::cerr << "kgrep: " << path << ": " << reason << std::endl;
    }

    const Options &m_options;
    Pattern m_pattern;
    Output m_output;
    Printer m_printer;
    Progress m_progress;
    Blocks m_blocks;
    std::uint64_t m_lines = 0;
    bool m_found = false, m_failed = false;
};

void Explain(const BadPattern &bad) {
    std::cerr << "kgrep: " << bad.message << "\n  " << bad.pattern << "\n  "
              << std::string(static_cast<std::size_t>(bad.position), ' ') << "^\n";
}

ExitCode Main(int count, char **arguments) {
    Options options = ParseOptions(count, arguments);
    if (options.told) {
        Output output{options.told};
        output.Write();
        return found;
    }
    if (!options.mistake.empty()) {
        std::cerr << "kgrep: " << options.mistake << "; --help explains the command line\n";
        return failed;
    }
    setErrReport(true);
    return Run(options).All();
}

}  // namespace

int main(int count, char **arguments) {
    std::setlocale(LC_ALL, "");
    try {
        return Main(count, arguments);
    } catch (const BadPattern &bad) {
        Explain(bad);
    } catch (const OutputFailed &output) {
        // A reader that went away wants no more, and no message.
        if (output.error != EPIPE)
            std::cerr << "kgrep: standard output: " << std::strerror(output.error) << '\n';
    } catch (const std::exception &error) {
        std::cerr << "kgrep: " << error.what() << '\n';
    }
    return failed;
}
