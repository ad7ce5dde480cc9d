// The terminal, and the signals that come from it: with channels.h the only place in kel that knows the
// operating system.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace tool {

enum class Stream : int { input = 0, output = 1, error = 2 };

bool IsTerminal(Stream stream);
struct TerminalSize {
    std::size_t columns = 80, rows = 24;
};
TerminalSize SizeOf(Stream stream);
bool SpeaksUtf8();  // by the locale

// The columns that a text takes, and a text cut or filled to this many. The text is printable.
std::size_t Width(std::string_view text);
std::string Fitted(std::string_view text, std::size_t columns);
std::string Trimmed(std::string line);  // without blanks at the end

// While it lives, the first SIGINT, SIGTERM or SIGHUP only sets Signal(), so that work in hand can be taken
// back; the second ends the process at once. One at a time.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption &) = delete;
    Interruption &operator=(const Interruption &) = delete;

    static int Signal();  // 0 for none
    // Ends the process as the signal would have.
    [[noreturn]] static void Die(int signal);

private:
    struct Former;
    std::unique_ptr<Former> m_former;
};

// Takes the whole terminal while it lives, on its second screen, and gives it back as it was: also when the
// process is stopped (Ctrl+Z) and goes on, and when it is asked to end.
class FullScreen {
public:
    FullScreen();
    ~FullScreen();
    FullScreen(const FullScreen &) = delete;
    FullScreen &operator=(const FullScreen &) = delete;

    // Whether standard output is a terminal that can do this.
    static bool IsPossible();

    enum class Event { timeout, redraw, interrupt, end, key, gone };
    // Waits for the first of these: the time, a new size or a return from being stopped, Ctrl+C, another
    // request to end (Signal()), a key (Key()), the end of the terminal.
    Event Wait(std::chrono::steady_clock::time_point until);
    int Signal() const { return m_signal; }
    // The byte of a key; the arrows and pages are up, down, page_up and page_down.
    int Key() const { return m_key; }
    enum Keys : int { up = 256, down, page_up, page_down, home, end, unknown };

    // Writes all of it at once; false when the terminal is gone.
    bool Write(std::string_view bytes);

private:
    struct State;

    void Take();
    void GiveBack();
    Event TakeSignal();
    Event ReadKeys();
    Event TakeKey();

    std::unique_ptr<State> m_state;
    int m_signal = 0, m_key = 0;
};

}  // namespace tool
