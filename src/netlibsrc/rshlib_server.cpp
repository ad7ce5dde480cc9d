// The server of the remote shell: reads a request, launches the command, and relays between its channels and
// the connection until the client has acknowledged the end.
#include <string_view>

#include <kelstdmt/kel.h>
#include <kelstdmt/rshlib.h>

#include "netlibsrc/rshlib_channel.h"
#include "netlibsrc/rshlib_launch.h"
#include "runtime/relay.h"
#include "runtime/trace.h"

using namespace kel::detail;
using kel::system::trace, kel::system::trace_area;

// The relay ------------------------------------------------------------------------------------

namespace {

struct output_channel {
    output_channel(int channel_tag, btkInputPipe &pipe)
        : tag(channel_tag), end(pipe), source(pipe.GetHandle()) {}

    bool is_open() const noexcept { return end.GetHandle() != -1; }

    int tag;
    btkInputPipe &end;
    pipe_source source;
    source_forwarder forwarder;
    bool is_held = false;
};

class command_relay {
public:
    command_relay(relay_wire &wire, netSocketStream &connection, launched_command &command, evtEvent *stop,
                  double patience)
        : m_wire(wire),
          m_connection(connection),
          m_command(command),
          m_stop(stop),
          m_patience(patience),
          m_exit(new btkPROCESSEvent(command.handle())),
          m_reader(server_tags(wire.coding())),
          m_input(tag_input, command.input.GetHandle()),
          m_output(tag_output, command.output),
          m_error(tag_error, command.error) {}

    // Until the client has acknowledged the end, or is gone, or the time after a stop is over. Whether the
    // client was told the end.
    bool run() {
        // What came with the request is here already.
        read_messages();
        while (!m_acknowledged) {
            m_wire.send();
            if (m_wire.is_over() || !pass()) {
                trace(trace_area::relay,
                      "given up: ", m_wire.is_over() ? "the connection is over" : "no time, or no peer",
                      ", the end was ", m_end_sent ? "sent" : "not sent");
                return false;
            }
        }
        trace(trace_area::relay, "the client acknowledges the end", m_end_sent ? "" : " that was never sent");
        return m_end_sent;
    }

private:
    // One wait, and all that can be done then. Of the events that are awaited, those before the first that
    // is signalled are not; the others are tried.
    bool pass() {
        btkEvent::List events;
        const auto await = [&](btkEvent *event, bool wanted) {
            events.Append(wanted ? event : nullptr);
            return static_cast<int>(events.GetSize());
        };
        const bool may_send = m_wire.unsent() == 0;
        const int gone = await(m_wire.gone(), m_input.is_full()), stop = await(m_stop, true),
                  exit = await(&m_exit, !m_exited), urgent = await(m_wire.urgent(), true),
                  room = await(m_input.event(), m_input.waits());
        await(m_wire.room(), !may_send);
        const int error = await(m_error.source.event(), may_send && m_error.is_open() && !m_error.is_held),
                  input = await(m_wire.input(), !m_input.is_full()),
                  output =
                      await(m_output.source.event(), may_send && m_output.is_open() && !m_output.is_held);
        const int first = btkEvent::Wait(events, m_until.left(), {});
        if (first <= 0 || first == gone) return false;
        if (first == stop) stop_command();
        if (first == exit) take_exit();
        // Bytes ahead of a message out of band have been taken in with it.
        if (first == urgent) control(m_connection.ReadOutOfBand());
        if (m_input.waits() && first <= room) m_input.flush_into_room();
        const bool more = first <= input && m_wire.receive();
        read_messages();
        while (first == urgent && more && m_wire.receive())
            read_messages();
        if (may_send && first <= error) forward(m_error);
        if (may_send && first <= output) forward(m_output);
        if (m_exited && !m_end_sent && !m_output.is_open() && !m_error.is_open()) {
            m_wire.put(tag_end);
            m_end_sent = true;
            trace(trace_area::relay, "the end is sent");
        }
        return true;
    }

    void stop_command() {
        trace(trace_area::relay, "the stop event is signalled: the command is terminated");
        m_command.terminate();
        m_stop = nullptr;
        // The client is given the time to take the rest.
        m_until = deadline(m_patience);
    }
    void take_exit() {
        long exit_code = 0;
        if (!kel::system::peek_exit_code(m_command.handle(), exit_code)) return;
        trace(trace_area::relay, "the command has ended with ", exit_code);
        m_wire.put(tag_exit_code);
        m_wire.put(static_cast<int>(exit_code));
        m_exited = true;
    }
    void control(int tag) {
        if (tag == tag_terminate || tag == tag_interrupt)
            trace(trace_area::relay, "the client ", tag == tag_terminate ? "terminates" : "interrupts",
                  " the command");
        if (tag == tag_terminate) m_command.terminate();
        if (tag == tag_interrupt) m_command.interrupt();
    }
    void forward(output_channel &channel) {
        if (!channel.is_open() || channel.is_held) return;
        if (!channel.forwarder.forward(channel.source, channel.tag, m_wire)) channel.end.Close();
    }

    void read_messages() {
        tag_reader::piece piece;
        while (!m_acknowledged && !m_input.is_full() && m_reader.take(m_wire.unread(), piece)) {
            if (piece.tag == tag_input)
                take_input(piece.bytes);
            else if (piece.tag == tag_input_end)
                end_input();
            else if (piece.tag == tag_end)
                m_acknowledged = true;
            else
                take_marks(piece.tag);
            control(piece.tag);
        }
        if (m_reader.is_broken()) {
            trace(trace_area::relay, "the client breaks the protocol");
            m_wire.give_up();
        }
        m_input.flush();
        if (const int news = m_input.news()) m_wire.put(news);
        if ((m_input_ended && m_input.pending() == 0) || m_input.is_dead()) m_command.input.Close();
    }
    void end_input() {
        trace(trace_area::relay, "the client ends the input");
        m_input_ended = true;
    }
    void take_input(std::string_view bytes) {
        if (!m_input_ended) m_input.take(bytes);
    }
    void take_marks(int tag) {
        for (output_channel *channel : {&m_error, &m_output}) {
            if (tag != channel->tag + tag_hold && tag != channel->tag + tag_go_on) continue;
            channel->is_held = tag == channel->tag + tag_hold;
            trace(trace_area::relay, channel_name(channel->tag),
                  channel->is_held ? ": the client holds it back" : ": the client has it go on");
        }
    }
    relay_wire &m_wire;
    netSocketStream &m_connection;
    launched_command &m_command;
    btkEvent *m_stop;
    double m_patience;
    deadline m_until{INFINITE};
    btkEvent m_exit;
    tag_reader m_reader;
    pipe_destination m_input;
    output_channel m_output, m_error;
    bool m_exited = false, m_input_ended = false, m_end_sent = false, m_acknowledged = false;
};

// The request ----------------------------------------------------------------------------------

bool refuse(relay_wire &wire, const kel::remote_shell_options &options, const kel::remote_command &command,
            const launch_failure &failure) {
    // No client takes a longer one.
    const std::string_view told = kel::view(failure.reason).substr(0, answer_reader::longest_text);
    const xstring reason = xstring::FromBytes(told.data(), told.size());
    trace(trace_area::relay, "refused: ", reason.Str());
    wire.put(answer_refused);
    wire.put(failure.error);
    wire.put(told);
    wire.send();
    if (options.refused) options.refused(command, reason);
    return false;
}

// Where the command is to run, or why it must not.
std::optional<launch_failure> check(kel::remote_command &command, const launch_request &request,
                                    const kel::remote_shell_options &options) {
    try {
        const xstring &base = options.base_directory;
        command.working_directory =
            directory_of(request.working_directory.c_str(), kel::is_text(base) ? base.Str() : "");
    } catch (xthrowable *thrown) {
        const kel::caught error(thrown);
        command.working_directory = request.working_directory.c_str();
        return launch_failure{pcBadWorkDir, error.description()};
    }
    const xstring reason = options.permit ? options.permit(command) : xstring();
    if (reason.IsNull()) return std::nullopt;
    return launch_failure{pcErrorSystem, reason};
}

}  // namespace

bool kel::serve_remote_command(netSocketStream *connection, const remote_shell_options &options,
                               evtEvent *stop) {
    if (!kel::is_object(connection) || !connection->getIsOpen()) return false;
    if (!kel::is_object(stop)) stop = nullptr;
    const kel::system::no_pipe_signals quiet;
    relay_wire wire(*connection, true);
    request_reader reader(wire.coding());
    for (const deadline until(options.patience); !reader.take(wire.unread());)
        if (reader.is_broken() || !wire.exchange(until, stop)) {
            trace(trace_area::relay, reader.is_broken() ? "no request: it is broken" : "no request in time");
            return false;
        }

    const launch_request &request = reader.request();
    remote_command command{request.command.c_str(), "", request.use_shell != 0};
    trace(trace_area::relay, "asked for ", command.use_shell ? "the shell's " : "", request.command);
    if (const auto failure = check(command, request, options))
        return refuse(wire, options, command, *failure);
    launched_command launched;
    if (const auto failure = launched.launch(command)) return refuse(wire, options, command, *failure);
    trace(trace_area::relay, "launched as process ", launched.id());
    if (options.launched) options.launched(command, launched.id());

    wire.put(answer_launched);
    command_relay relay(wire, *connection, launched, stop, options.patience);
    const bool stayed = relay.run();
    // What the command has left running outlives it only when all went well.
    if (!stayed) launched.terminate();
    const int exit_code = launched.collect();
    if (options.ended) options.ended(command, exit_code, stayed);
    return true;
}

// As objects -----------------------------------------------------------------------------------

unsigned char rshServer::Execute(netSocketStream *connection, const char *base_directory, evtEvent *stop) {
    kel::remote_shell_options options;
    if (kel::is_text(base_directory)) options.base_directory = base_directory;
    return kel::serve_remote_command(connection, options, stop);
}

rshServerEvent::~rshServerEvent() = default;

rshServer::rshServer(netSocketStream *connection, const char *base_directory)
    : m_connection(connection), m_base_directory(kel::is_text(base_directory) ? base_directory : "") {}

rshServer::~rshServer() {
    netThread::Close();
}

rshServer *rshServer::Create(netSocketStream *connection, const char *base_directory, unsigned char) {
    std::unique_ptr<rshServer> server(kel::construct_with<rshServer>(
        [&](void *at) { return ::new (at) rshServer(connection, base_directory); }));
    return server->Start() ? server.release() : nullptr;
}

int rshServer::OnStart() {
    const std::unique_ptr<ioEvent> stop(SignalStream()->InputEvent());
    Execute(m_connection, m_base_directory, stop.get());
    return 0;
}

void rshServer::Terminate() {
    ioStream *control = ControlStream();
    if (!control) {
        _Abort(nullptr, "netlibsrc/rshlib", __LINE__);
    } else if (!m_terminate_sent) {
        m_terminate_sent = true;
        control->WriteByte(0);
        control->Flush();
    }
}

rshServerEvent *rshServer::ExitEvent() {
    std::unique_ptr<btkBaseEvent> condition(GetExitEvent());
    rshServerEvent *event = kel::construct<rshServerEvent>(this, condition.get());
    condition.release();
    return event;
}

void rshServer::Close() {
    netThread::Close();
}

void rshServer::OnClose() {
    if (!IsExited()) Terminate();
    WaitExitCode();
    netThread::OnClose();
}
