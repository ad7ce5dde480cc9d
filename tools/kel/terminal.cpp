#include "terminal.h"

#include <fcntl.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>
#include <wchar.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "descriptor.h"

namespace tool {

bool IsTerminal(Stream stream) {
    return isatty(static_cast<int>(stream)) == 1;
}

TerminalSize SizeOf(Stream stream) {
    winsize size{};
    TerminalSize found;
    if (ioctl(static_cast<int>(stream), TIOCGWINSZ, &size) != 0) return found;
    if (size.ws_col) found.columns = size.ws_col;
    if (size.ws_row) found.rows = size.ws_row;
    return found;
}

bool SpeaksUtf8() {
    return std::string_view(nl_langinfo(CODESET)) == "UTF-8";
}

namespace {

// The bytes of the text's first character and the columns that it takes; a byte that the locale cannot read
// takes one.
struct Cell {
    std::size_t bytes, columns;
};
Cell FirstCell(std::string_view text) {
    wchar_t wide;
    mbstate_t state{};
    std::size_t bytes = mbrtowc(&wide, text.data(), text.size(), &state);
    if (bytes == 0 || bytes > text.size()) return {1, 1};
    int columns = wcwidth(wide);
    return {bytes, columns < 0 ? 1 : static_cast<std::size_t>(columns)};
}

}  // namespace

std::size_t Width(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        Cell cell = FirstCell(text);
        columns += cell.columns;
        text.remove_prefix(cell.bytes);
    }
    return columns;
}

std::string Fitted(std::string_view text, std::size_t columns) {
    std::string fitted;
    std::size_t taken = 0;
    for (std::string_view rest = text; !rest.empty();) {
        Cell cell = FirstCell(rest);
        if (taken + cell.columns > columns) break;
        fitted += rest.substr(0, cell.bytes);
        taken += cell.columns;
        rest.remove_prefix(cell.bytes);
    }
    return fitted.append(columns - taken, ' ');
}

std::string Trimmed(std::string line) {
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

// Interruption -----------------------------------------------------------------------------------

namespace {

constexpr std::array ending_signals = {SIGINT, SIGTERM, SIGHUP};
volatile std::sig_atomic_t interrupted_by = 0;

void NoteInterruption(int signal) {
    interrupted_by = signal;
}

}  // namespace

struct Interruption::Former {
    std::array<struct sigaction, ending_signals.size()> actions;
};

Interruption::Interruption() : m_former(std::make_unique<Former>()) {
    for (std::size_t i = 0; i < ending_signals.size(); ++i) {
        struct sigaction note {};
        note.sa_handler = NoteInterruption;
        note.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
        sigaction(ending_signals[i], nullptr, &m_former->actions[i]);
        // What nohup and the shell's background jobs ignore stays ignored.
        if (m_former->actions[i].sa_handler != SIG_IGN) sigaction(ending_signals[i], &note, nullptr);
    }
}

Interruption::~Interruption() {
    for (std::size_t i = 0; i < ending_signals.size(); ++i)
        sigaction(ending_signals[i], &m_former->actions[i], nullptr);
}

int Interruption::Signal() {
    return interrupted_by;
}

void Interruption::Die(int signal) {
    std::signal(signal, SIG_DFL);
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, signal);
    sigprocmask(SIG_UNBLOCK, &mask, nullptr);
    std::raise(signal);
    std::_Exit(128 + signal);
}

// FullScreen -------------------------------------------------------------------------------------

namespace {

constexpr std::string_view take_screen = "\033[?1049h\033[?25l\033[H\033[2J";
constexpr std::string_view give_back_screen = "\033[?25h\033[?1049l";

sigset_t WatchedSignals() {
    sigset_t watched;
    sigemptyset(&watched);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH})
        sigaddset(&watched, signal);
    return watched;
}

}  // namespace

struct FullScreen::State {
    sigset_t watched = WatchedSignals(), former{};
    const Descriptor signals{signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK), "signals"};
    std::string typed;  // and not taken yet
    termios modes{};
    bool has_modes = tcgetattr(0, &modes) == 0;
    bool reads_keys = has_modes;
};

bool FullScreen::IsPossible() {
    const char *kind = std::getenv("TERM");
    return IsTerminal(Stream::output) && kind && *kind && std::string_view(kind) != "dumb";
}

FullScreen::FullScreen() : m_state(std::make_unique<State>()) {
    sigprocmask(SIG_BLOCK, &m_state->watched, &m_state->former);
    Take();
}

FullScreen::~FullScreen() {
    GiveBack();
    sigprocmask(SIG_SETMASK, &m_state->former, nullptr);
}

// Keys come one by one and unseen; those that make signals go on making them.
void FullScreen::Take() {
    if (m_state->has_modes) {
        termios modes = m_state->modes;
        modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        modes.c_cc[VMIN] = 1;
        modes.c_cc[VTIME] = 0;
        tcsetattr(0, TCSADRAIN, &modes);
    }
    Write(take_screen);
}

void FullScreen::GiveBack() {
    Write(give_back_screen);
    if (m_state->has_modes) tcsetattr(0, TCSAFLUSH, &m_state->modes);
}

bool FullScreen::Write(std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t written = write(1, bytes.data(), bytes.size());
        if (written < 0 && errno == EAGAIN) {
            pollfd room{1, POLLOUT, 0};
            poll(&room, 1, 1000);
            continue;
        }
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

FullScreen::Event FullScreen::Wait(std::chrono::steady_clock::time_point until) {
    if (!m_state->typed.empty()) return TakeKey();
    using namespace std::chrono;
    auto left = ceil<milliseconds>(until - steady_clock::now()).count();
    pollfd sources[] = {{m_state->signals.Number(), POLLIN, 0}, {m_state->reads_keys ? 0 : -1, POLLIN, 0}};
    int ready = poll(sources, 2, static_cast<int>(std::clamp<decltype(left)>(left, 0, 1 << 30)));
    if (ready < 0 && errno != EINTR) return Event::gone;
    if (ready <= 0) return Event::timeout;
    return sources[0].revents ? TakeSignal() : ReadKeys();
}

FullScreen::Event FullScreen::TakeSignal() {
    signalfd_siginfo info;
    if (read(m_state->signals.Number(), &info, sizeof info) != sizeof info) return Event::timeout;
    m_signal = static_cast<int>(info.ssi_signo);
    switch (m_signal) {
        case SIGINT:
            return Event::interrupt;
        case SIGTSTP:
            GiveBack();
            raise(SIGTSTP);
            sigprocmask(SIG_SETMASK, &m_state->former, nullptr);  // here the process stands still
            sigprocmask(SIG_BLOCK, &m_state->watched, nullptr);
            if (m_state->has_modes) tcgetattr(0, &m_state->modes);
            Take();
            return Event::redraw;
        case SIGWINCH:
            return Event::redraw;
        default:
            return Event::end;
    }
}

FullScreen::Event FullScreen::ReadKeys() {
    char bytes[64];
    ssize_t count = read(0, bytes, sizeof bytes);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) return Event::timeout;
    if (count <= 0) {
        m_state->reads_keys = false;
        return count < 0 && errno == EIO ? Event::gone : Event::timeout;
    }
    m_state->typed.append(bytes, static_cast<std::size_t>(count));
    return TakeKey();
}

// A sequence comes in one piece; an escape character that begins none takes all that came with it along.
FullScreen::Event FullScreen::TakeKey() {
    struct Sequence {
        std::string_view bytes;
        int key;
    };
    static constexpr Sequence sequences[] = {
        {"\033[A", up},         {"\033OA", up},   {"\033[B", down}, {"\033OB", down}, {"\033[5~", page_up},
        {"\033[6~", page_down}, {"\033[H", home}, {"\033OH", home}, {"\033[F", end},  {"\033OF", end}};
    std::string &typed = m_state->typed;
    auto found = std::find_if(std::begin(sequences), std::end(sequences),
                              [&](const Sequence &known) { return typed.starts_with(known.bytes); });
    if (found != std::end(sequences)) {
        m_key = found->key;
        typed.erase(0, found->bytes.size());
    } else {
        bool strange = typed[0] == '\033';
        m_key = strange ? int{unknown} : static_cast<unsigned char>(typed[0]);
        typed.erase(0, strange ? typed.size() : 1);
    }
    return Event::key;
}

}  // namespace tool
