// The client of the remote shell: asks for a command, and relays between the caller's streams and the
// connection until the server has told the end.
#include <atomic>
#include <string_view>

#include <kelstdmt/kel.h>
#include <kelstdmt/rshlib.h>

#include "netlibsrc/rshlib_channel.h"
#include "runtime/relay.h"
#include "runtime/trace.h"

using namespace kel::detail;
using kel::system::trace, kel::system::trace_area;

// The relay ------------------------------------------------------------------------------------

namespace {

class client_relay {
public:
    client_relay(relay_wire &wire, ioStream &control, relay_source &input, relay_destination &output,
                 relay_destination &error)
        : m_wire(wire),
          m_control(control),
          m_control_ints(int_coding(true)),
          m_reader(client_tags(wire.coding())),
          m_input(&input),
          m_output(output),
          m_error(error) {}

    // Until the server has told the end and all that it has sent is delivered, or the connection is over, or
    // the owner gives up. The exit code.
    int run() {
        // What came with the server's answer is here already.
        read_messages();
        for (m_wire.send(); !is_done(); m_wire.send())
            pass();
        trace(trace_area::relay,
              m_ended      ? "the end is acknowledged, the exit code is "
              : m_given_up ? "given up by the caller, the exit code was "
                           : "the connection was lost, the exit code was ",
              m_exit_code);
        // Output that breaks off must not look like all of it.
        return m_ended ? m_exit_code : rshProcess::NoExitCode;
    }

private:
    bool is_done() const noexcept {
        if (m_given_up) return true;
        const bool is_delivered = m_output.pending() == 0 && m_error.pending() == 0;
        return is_delivered && (m_wire.is_over() || (m_ended && m_wire.unsent() == 0));
    }

    // As on the server's side.
    void pass() {
        btkEvent::List events;
        const auto await = [&](btkEvent *event, bool wanted) {
            events.Append(wanted ? event : nullptr);
            return static_cast<int>(events.GetSize());
        };
        const bool may_send = m_wire.unsent() == 0, is_open = !m_ended && !m_wire.is_over();
        const int control = await(m_control.event(), true), error = await(m_error.event(), m_error.waits()),
                  output = await(m_output.event(), m_output.waits());
        await(m_wire.room(), !may_send && !m_wire.is_over());
        const int socket = await(m_wire.input(), is_open && !m_error.is_full() && !m_output.is_full()),
                  input = await(m_input ? m_input->event() : nullptr, is_open && may_send && !m_input_held);
        const int first = btkEvent::Wait(events, no_limit, {});
        if (first < 0) m_wire.give_up();
        if (first == control) pass_control_on();
        if (m_error.waits() && first <= error) m_error.flush_into_room();
        if (m_output.waits() && first <= output) m_output.flush_into_room();
        if (first <= socket && is_open) m_wire.receive();
        read_messages();
        if (first <= input && may_send) forward_input();
    }

    void pass_control_on() {
        char bytes[256];
        const std::ptrdiff_t got = m_control.read(bytes, sizeof bytes);
        if (got == 0) {
            m_given_up = true;
            m_wire.give_up();
        }
        if (got <= 0) return;
        std::string_view left(bytes, static_cast<std::size_t>(got));
        // Of a peer that takes nothing, those that are on their way are enough.
        for (int tag; m_control_ints.take(left, tag);)
            if (!m_ended && m_wire.unsent() < enough_unsent) {
                trace(trace_area::relay, "tells the server to ",
                      tag == tag_terminate ? "terminate" : "interrupt");
                m_wire.put(tag);
            }
    }

    void read_messages() {
        tag_reader::piece piece;
        while (!m_ended && !m_error.is_full() && !m_output.is_full() && m_reader.take(m_wire.unread(), piece))
            take(piece);
        if (m_reader.is_broken()) {
            trace(trace_area::relay, "the server breaks the protocol");
            m_wire.give_up();
        }
        for (relay_destination *destination : {&m_error, &m_output}) {
            destination->flush();
            if (const int news = destination->news(); news && !m_ended) m_wire.put(news);
        }
    }
    void take(const tag_reader::piece &piece) {
        switch (piece.tag) {
            case tag_error:
                m_error.take(piece.bytes);
                break;
            case tag_output:
                m_output.take(piece.bytes);
                break;
            case tag_exit_code:
                m_exit_code = piece.value;
                trace(trace_area::relay, "the command has ended with ", m_exit_code);
                break;
            case tag_end:
                m_wire.put(tag_end);
                m_ended = true;
                break;
            case tag_input + tag_hold:
            case tag_input + tag_go_on:
                m_input_held = piece.tag == tag_input + tag_hold;
                trace(trace_area::relay, channel_name(tag_input),
                      m_input_held ? ": the server holds it back" : ": the server has it go on");
                break;
            default:
                break;
        }
    }
    void forward_input() {
        if (!m_input || m_input_held || m_ended || m_wire.is_over()) return;
        if (m_forwarder.forward(*m_input, tag_input, m_wire)) return;
        m_wire.put(tag_input_end);
        m_input = nullptr;
    }

    static constexpr std::size_t enough_unsent = std::size_t{1} << 20;

    relay_wire &m_wire;
    stream_source m_control;
    int_reader m_control_ints;
    tag_reader m_reader;
    relay_source *m_input;  // null once at its end
    source_forwarder m_forwarder;
    relay_destination &m_output, &m_error;
    bool m_input_held = false, m_ended = false, m_given_up = false;
    int m_exit_code = rshProcess::NoExitCode;
};

}  // namespace

// The process ----------------------------------------------------------------------------------

rshEvent::~rshEvent() = default;

struct rshProcess::parts {
    explicit parts(netSocketStream &connection) : wire(connection, false) {}

    relay_wire wire;
    std::unique_ptr<ioPipe> input_pipe, output_pipe, error_pipe;
    // The relay's ends, which are the caller's streams or belong to the pipes.
    ioStream *input = nullptr, *output = nullptr, *error = nullptr;
    std::atomic<int> exit_code{NoExitCode};
    bool closed = false;

    // Those of the pipes that only the relay uses, or only the caller.
    void close_ends(bool of_relay) {
        const auto close = [](const std::unique_ptr<ioPipe> &pipe, bool read_end) {
            if (pipe)
                (read_end ? kel_pipe_access::ReadStream(*pipe) : kel_pipe_access::WriteStream(*pipe))
                    ->Close();
        };
        close(input_pipe, of_relay);
        close(output_pipe, !of_relay);
        close(error_pipe, !of_relay);
    }
};

rshProcess::rshProcess(std::unique_ptr<parts> owned) : m_parts(std::move(owned)) {}

rshProcess::~rshProcess() {
    netThread::Close();
}

namespace {

using pipe_end = ioPipeStream *(*)(ioPipe &);

ioStream *open_end(const std::unique_ptr<ioPipe> &pipe, pipe_end end) {
    return pipe ? end(*pipe) : nullptr;
}

std::string_view text_of(const char *text) {
    return kel::is_text(text) ? std::string_view(text) : std::string_view();
}

[[noreturn]] void fail(rshError error, int of_creation, const char *text) {
    trace(trace_area::relay, error == rshProtocolMismatch ? "the answer is broken" : "no command: ", text);
    rshXProcess::Throw(error, of_creation, text);
}

// Throws when the server refuses or goes away.
void launch(relay_wire &wire, const char *command, const char *working_directory, bool use_shell) {
    trace(trace_area::relay, "asks for ", use_shell ? "the shell's " : "", text_of(command));
    wire.put(text_of(command));
    wire.put(text_of(working_directory));
    wire.put(use_shell ? 1 : 0);
    answer_reader answer(wire.coding());
    for (const deadline until(INFINITE); !answer.take(wire.unread());) {
        if (answer.is_broken()) fail(rshProtocolMismatch, 0, "");
        if (!wire.exchange(until, nullptr)) fail(rshDaemonError, 0, "");
    }
    if (!answer.is_launched()) fail(rshDaemonError, answer.error(), answer.text().c_str());
    trace(trace_area::relay, "the server has launched it");
}

}  // namespace

rshProcess *rshProcess::Create(netSocketStream *connection, const char *command,
                               const char *working_directory, ioStream *in, ioStream *out, ioStream *err,
                               unsigned char use_shell, unsigned char) {
    if (!kel::is_object(connection) || !connection->getIsOpen()) rshXProcess::Throw(rshDaemonError, 0, "");
    auto owned = std::make_unique<parts>(*connection);
    // Before the launch, so that nothing has to be taken back for want of them.
    const auto end_of = [](ioStream *given, std::unique_ptr<ioPipe> &pipe, pipe_end end) -> ioStream * {
        if (kel::is_object(given)) return given;
        pipe.reset(ioPipe::Create());
        return open_end(pipe, end);
    };
    owned->input = end_of(in, owned->input_pipe, kel_pipe_access::ReadStream);
    owned->output = end_of(out, owned->output_pipe, kel_pipe_access::WriteStream);
    owned->error = end_of(err, owned->error_pipe, kel_pipe_access::WriteStream);
    if (!owned->input || !owned->output || !owned->error) return nullptr;
    launch(owned->wire, command, working_directory, use_shell == 1);
    relay_wire &wire = owned->wire;
    std::unique_ptr<rshProcess> process(
        kel::construct_with<rshProcess>([&](void *at) { return ::new (at) rshProcess(std::move(owned)); }));
    if (process->Start()) return process.release();
    wire.give_up();
    return nullptr;
}

int rshProcess::OnStart() {
    const kel::system::no_pipe_signals quiet;
    // A key that interrupts is for the command, not for this program.
    const std::unique_ptr<pcInterruptEvent> interrupt(pcInterruptEvent::Create());
    const auto source = [](ioStream *stream, bool is_pipe) -> std::unique_ptr<relay_source> {
        if (is_pipe) return std::make_unique<pipe_source>(stream->GetInheritHandle());
        return std::make_unique<stream_source>(*stream);
    };
    const auto destination = [](int tag, ioStream *stream,
                                bool is_pipe) -> std::unique_ptr<relay_destination> {
        if (is_pipe) return std::make_unique<pipe_destination>(tag, stream->GetInheritHandle());
        return std::make_unique<stream_destination>(tag, *stream);
    };
    parts &own = *m_parts;
    {
        const auto input = source(own.input, own.input_pipe != nullptr);
        const auto output = destination(tag_output, own.output, own.output_pipe != nullptr),
                   error = destination(tag_error, own.error, own.error_pipe != nullptr);
        own.exit_code = client_relay(own.wire, *SignalStream(), *input, *output, *error).run();
    }
    own.close_ends(true);
    return own.exit_code;
}

void rshProcess::AtFork(bool child) {
    netThread::AtFork(child);
    m_parts->close_ends(child);
}

// The operations -------------------------------------------------------------------------------

ioStream *rshProcess::getStdin() const {
    return open_end(m_parts->input_pipe, kel_pipe_access::WriteStream);
}
ioStream *rshProcess::getStdout() const {
    return open_end(m_parts->output_pipe, kel_pipe_access::ReadStream);
}
ioStream *rshProcess::getStderr() const {
    return open_end(m_parts->error_pipe, kel_pipe_access::ReadStream);
}

void rshProcess::Terminate() {
    Control(tag_terminate);
}
void rshProcess::Interrupt() {
    Control(tag_interrupt);
}

void rshProcess::Control(int tag) {
    if (!IsRunning()) return;
    ControlStream()->WriteInt(tag);
    ControlStream()->Flush();
}

int rshProcess::GetExitCode() {
    return IsRunning() ? NoExitCode : m_parts->exit_code.load();
}

unsigned char rshProcess::IsRunning() {
    if (m_parts->closed) return false;
    if (!ControlStream()) {
        _Abort(nullptr, "netlibsrc/rshlib", __LINE__);
        return false;
    }
    return !IsExited();
}

rshEvent *rshProcess::ExitEvent() {
    std::unique_ptr<btkBaseEvent> condition(GetExitEvent());
    rshEvent *event = kel::construct<rshEvent>(this, condition.get());
    condition.release();
    return event;
}

void rshProcess::Close() {
    netThread::Close();
}

void rshProcess::OnClose() {
    ControlStream()->Close();
    WaitExitCode();
    m_parts->closed = true;
    m_parts->input_pipe.reset();
    m_parts->output_pipe.reset();
    m_parts->error_pipe.reset();
    netThread::OnClose();
}
