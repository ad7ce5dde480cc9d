// A client of the remote shell and a server that answers it with any bytes and then hangs up, however they
// are cut: nobody is held up, output is what stands in the bytes, and what breaks off does not look like all
// of it. What comes of which answer is tested by tests/interop/rsh_interop.py.
#include <thread>

#include <kelstdmt/rshlib.h>

#include "peer.h"

namespace {

using namespace peer;

std::string all(ioStream *stream) {
    std::string text;
    while (const unsigned there = stream->PeekNBytes()) {
        text.resize(text.size() + there);
        stream->ReadBytes(text.data() + text.size() - there, there);
    }
    return text;
}

// The two outputs as they stand in the bytes; whether there is an end.
bool read(std::string_view bytes, std::string (&texts)[2]) {
    Reader from{bytes};
    bool ends = false;
    for (from.integer(); from.whole && !ends;) {
        const int tag = from.integer(), value = tag == Err || tag == Out || tag == Code ? from.integer() : 0;
        if (value < 0 && tag != Code) break;
        if (tag == Err || tag == Out) texts[tag == Out] += from.bytes(value);
        ends = from.whole && tag == Done;
    }
    return ends;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    if (size < 1 || size > 2000) return 0;
    const std::string_view answer(reinterpret_cast<const char *>(bytes) + 1, size - 1);
    std::string texts[2], told;
    const bool ends = read(answer, texts);
    Connection connection;
    std::thread serving([&] {
        connection.send(answer, bytes[0]);
        connection.hang_up();
        told = connection.receive_all();
    });
    try {
        const std::unique_ptr<rshProcess> process(
            rshProcess::Create(connection.ours.get(), "x", nullptr, nullptr, nullptr, nullptr, 0, 1));
        process->getStdin()->Close();
        require(std::unique_ptr<rshEvent>(process->ExitEvent())->Wait(20), "the relay does not end");
        const std::string errors = all(process->getStderr()), output = all(process->getStdout());
        require(texts[0].starts_with(errors) && texts[1].starts_with(output), "other output");
        require(
            ends ? texts[0] + texts[1] == errors + output : process->GetExitCode() == rshProcess::NoExitCode,
            "an end that is none");
    } catch (xthrowable *thrown) {
        require(kel::caught(thrown).as<rshXProcess>() && !answer.starts_with(message(0)), "not refused");
    }
    connection.ours.reset();
    serving.join();
    require(told.starts_with(message(1) + "x" + message(0) + message(0)), "something else was asked");
    return 0;
}
