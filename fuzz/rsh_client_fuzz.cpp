// A client of the remote shell and a server that answers it with any bytes and then hangs up: the launch or
// its refusal, the two outputs and the exit code must be what stands in the bytes, however they are cut.
#include <thread>

#include <kelstdmt/rshlib.h>

#include "peer.h"

namespace {

using namespace peer;

struct Outcome {
    std::string refusal;
    std::string texts[2];
    bool cut[2] = {};  // the last piece was not all there
    int code = rshProcess::NoExitCode;
    bool acknowledged = false;
};

std::string refusal(int error, int create_error, std::string_view text) {
    return std::to_string(error) + " " + std::to_string(create_error) + " " + std::string(text);
}

Outcome model(std::string_view bytes) {
    Outcome outcome;
    Reader from{bytes};
    const std::string gone = refusal(rshDaemonError, 0, "Remote process launching error");
    if (from.integer() != 0 || !from.whole) {
        const int error = from.integer(), size = from.integer();
        if (from.whole && (size < 0 || size > 65536))
            return outcome.refusal = refusal(rshProtocolMismatch, 0, "Protocol mismatch"), outcome;
        const std::string text = from.whole ? from.bytes(size) : "";
        outcome.refusal =
            !from.whole || error == 0 ? gone : refusal(rshDaemonError, error, std::string(text.c_str()));
        return outcome;
    }
    for (int tag; (tag = from.integer()), from.whole && !outcome.acknowledged;) {
        if (tag == Err || tag == Out) {
            const int size = from.integer();
            if (size < 0) break;
            if (from.whole) outcome.texts[tag == Out] += from.bytes(size);
            outcome.cut[tag == Out] = !from.whole;
        } else if (tag == Code) {
            const int code = from.integer();
            if (from.whole) outcome.code = code;
        } else if (tag == Done) {
            outcome.acknowledged = true;
        }
    }
    // Output that breaks off must not look like all of it.
    if (!outcome.acknowledged) outcome.code = rshProcess::NoExitCode;
    return outcome;
}

std::string all(ioStream *stream) {
    std::string text;
    while (const unsigned there = stream->PeekNBytes()) {
        text.resize(text.size() + there);
        stream->ReadBytes(text.data() + text.size() - there, there);
    }
    return text;
}

Outcome act(netSocketStream *connection) {
    Outcome outcome;
    try {
        const std::unique_ptr<rshProcess> process(
            rshProcess::Create(connection, "x", nullptr, nullptr, nullptr, nullptr, 0, 1));
        require(process != nullptr, "no relay");
        process->getStdin()->Close();
        const std::unique_ptr<rshEvent> ended(process->ExitEvent());
        require(ended->Wait(20), "the relay does not end");
        outcome.texts[0] = all(process->getStderr());
        outcome.texts[1] = all(process->getStdout());
        outcome.code = process->GetExitCode();
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        auto *refused = error.as<rshXProcess>();
        require(refused, "another exception");
        outcome.refusal = refusal(refused->getError(), static_cast<int>(refused->getCreateError()),
                                  kel::view(refused->getMsg()));
    }
    return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    if (size < 1 || size > 2000) return 0;
    const std::string_view answer(reinterpret_cast<const char *>(bytes) + 1, size - 1);
    const Outcome expected = model(answer);
    Connection connection;
    std::string told;
    std::thread serving([&] {
        connection.send(answer, bytes[0]);
        connection.hang_up();
        told = connection.receive_all();
    });
    const Outcome saw = act(connection.ours.get());
    connection.ours.reset();
    serving.join();
    require(saw.refusal == expected.refusal, "another refusal");
    for (int i = 0; i < 2; ++i)
        require(
            expected.cut[i] ? expected.texts[i].starts_with(saw.texts[i]) : expected.texts[i] == saw.texts[i],
            "other output");
    require(saw.code == expected.code, "another exit code");
    const std::string request = message(1) + "x" + message(0) + message(0);
    const bool acknowledged = told.size() > request.size() && told.ends_with(message(Done));
    require(told.starts_with(request) && acknowledged == expected.acknowledged, "something else was told");
    return 0;
}
