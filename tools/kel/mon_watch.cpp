#include "mon_watch.h"

#include <algorithm>
#include <iostream>
#include <thread>
#include <unordered_map>

#include <kelstdmt/timelib.h>

#include "mon_table.h"
#include "terminal.h"
#include "text.h"

namespace tool {

namespace {

using clock = std::chrono::steady_clock;

// The file and the past of its numbers. A publisher may remove the file and make a new one, so from time to
// time it is opened anew by its name; the past is kept by the names of the parameters.
class Watched {
public:
    explicit Watched(const std::string &path) : m_path(path), m_file(OpenForReading(path)) {}

    void Look() {
        if (clock::now() - m_opened >= std::chrono::seconds(1)) Reopen();
        if (!m_file->Refresh()) m_status = "damaged: the rest of the file is not shown";
        m_rows.clear();
        for (monParam *parameter : m_file->Parameters()) {
            std::string name = NameOf(*parameter);
            MonitorValue value = ValueOf(*parameter);
            const History *history = nullptr;
            if (value.number && value.type != MonitorType::boolean) history = &Remember(name, *value.number);
            m_rows.push_back({Printable(name), std::move(value), history});
        }
        for (const std::string &report : m_reports.Take())
            m_status = Printable(report);
    }

    std::string Title() const { return Printable(TitleOf(*m_file)); }
    const std::vector<MonitorRow> &Rows() const { return m_rows; }
    const std::string &Status() const { return m_status; }

private:
    void Reopen() {
        m_opened = clock::now();
        m_status.clear();
        try {
            std::unique_ptr<monFile> file = OpenForReading(m_path);
            m_file = std::move(file);
        } catch (const Failure &failure) {
            m_status = failure.what();
        }
    }

    const History &Remember(const std::string &name, double number) {
        History &history = m_past[name];
        history.push_back(number);
        if (history.size() > history_columns) history.pop_front();
        return history;
    }

    Reports m_reports;
    std::string m_path, m_status;
    clock::time_point m_opened = clock::now();
    std::unique_ptr<monFile> m_file;
    std::unordered_map<std::string, History> m_past;
    std::vector<MonitorRow> m_rows;
};

std::string Now() {
    std::unique_ptr<tmTime> now(tmTime::CurrentTime());
    return tmTime::TimeToString(now.get(), "%H:%M:%S").Str();
}

// Draws a part of the table that fits, and moves it by keys.
class Screen {
public:
    explicit Screen(const WatchOptions &options) : m_options(options) {}

    bool Draw(FullScreen &screen, const Watched &watched) {
        TerminalSize size = SizeOf(Stream::output);
        m_page = size.rows > 4 ? size.rows - 4 : 1;  // without title, header, status and the line above it
        m_rows = watched.Rows().size();
        m_first = std::min(m_first, m_rows > m_page ? m_rows - m_page : 0);
        std::size_t last = std::min(m_rows, m_first + m_page);
        std::vector<std::string> lines =
            MonitorTable(std::span(watched.Rows()).subspan(m_first, last - m_first), size.columns, m_widest);
        lines.insert(lines.begin(), Head(watched, size.columns));
        lines.resize(std::min(lines.size(), size.rows - 1));  // the last row is the status
        std::string frame = "\033[H";
        for (const std::string &line : lines)
            frame += Fitted(line, std::min(size.columns, Width(line))) + "\033[K\r\n";
        frame +=
            "\033[J\033[" + std::to_string(size.rows) + ";1H" + Fitted(Foot(watched, last), size.columns - 1);
        return screen.Write(frame);
    }

    // False when the key ends the watching.
    bool Move(int key) {
        auto by = static_cast<std::ptrdiff_t>(m_page);
        std::ptrdiff_t step = 0;
        switch (key) {
            case 'q':
                return false;
            case FullScreen::up:
            case 'k':
                step = -1;
                break;
            case FullScreen::down:
            case 'j':
                step = 1;
                break;
            case FullScreen::page_up:
                step = -by;
                break;
            case FullScreen::page_down:
            case ' ':
                step = by;
                break;
            case FullScreen::home:
                step = -static_cast<std::ptrdiff_t>(m_rows);
                break;
            case FullScreen::end:
                step = static_cast<std::ptrdiff_t>(m_rows);
                break;
            default:
                break;
        }
        m_first = static_cast<std::size_t>(
            std::max<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(m_first) + step, 0));
        return true;
    }

private:
    std::string Head(const Watched &watched, std::size_t columns) const {
        std::string every = "every " + NumberText(m_options.interval) + " s   " + Now();
        std::string title = watched.Title() + "   " + Printable(m_options.file);
        std::size_t room = columns > Width(every) + 2 ? columns - Width(every) - 2 : columns;
        return Fitted(title, room) + "  " + every;
    }
    std::string Foot(const Watched &watched, std::size_t last) const {
        if (!watched.Status().empty()) return watched.Status();
        if (last - m_first == m_rows) return "q or Ctrl+C ends";
        return std::to_string(m_first + 1) + " to " + std::to_string(last) + " of " + std::to_string(m_rows) +
               "   arrows and pages move, q or Ctrl+C ends";
    }

    const WatchOptions &m_options;
    MonitorWidths m_widest;
    std::size_t m_first = 0, m_page = 1, m_rows = 0;
};

clock::duration Interval(const WatchOptions &options) {
    return std::chrono::duration_cast<clock::duration>(std::chrono::duration<double>(options.interval));
}

// The signal that ended it; 0 for the end that was asked for.
int WatchOnScreen(const WatchOptions &options, Watched &watched) {
    FullScreen terminal;
    Screen screen(options);
    clock::time_point next = clock::now();
    for (unsigned looks = 0; options.count == 0 || looks < options.count; ++looks) {
        watched.Look();
        if (!screen.Draw(terminal, watched)) return 0;
        next = std::max(next + Interval(options), clock::now());
        while (clock::now() < next) {
            FullScreen::Event event = terminal.Wait(next);
            if (event == FullScreen::Event::interrupt || event == FullScreen::Event::gone) return 0;
            if (event == FullScreen::Event::end) return terminal.Signal();
            if (event == FullScreen::Event::key && !screen.Move(terminal.Key())) return 0;
            if (event != FullScreen::Event::timeout && !screen.Draw(terminal, watched)) return 0;
        }
    }
    return 0;
}

void WatchInLines(const WatchOptions &options, Watched &watched) {
    MonitorWidths widest;
    clock::time_point next = clock::now();
    for (unsigned looks = 0; options.count == 0 || looks < options.count; ++looks) {
        if (looks) std::this_thread::sleep_until(next += Interval(options));
        watched.Look();
        std::cout << (looks ? "\n" : "") << watched.Title() << "   " << Now() << '\n';
        for (const std::string &line : MonitorTable(watched.Rows(), unlimited_columns, widest))
            std::cout << line << '\n';
        if (!watched.Status().empty()) Complain(watched.Status());
        std::cout.flush();
    }
}

}  // namespace

ExitCode Watch(const WatchOptions &options) {
    Watched watched(options.file);
    int signal = 0;
    if (FullScreen::IsPossible()) {
        signal = WatchOnScreen(options, watched);
    } else {
        WatchInLines(options, watched);
    }
    if (signal) Interruption::Die(signal);
    return done;
}

}  // namespace tool
