// Pipes: values that arrive in pieces, events, lost readers, bytes that nobody reads, copies.
#include "iolibsrc/own_stream.h"

#include <fcntl.h>
#include <unistd.h>

namespace {

struct Pipe : testing::Test {
    ioPipeStream &out() const { return *kel_pipe_access::WriteStream(*pipe); }
    ioPipeStream &in() const { return *kel_pipe_access::ReadStream(*pipe); }
    // Past the write stream's buffer.
    void send(const std::string &bytes) const {
        EXPECT_EQ(::write(out().GetInheritHandle(), bytes.data(), bytes.size()),
                  static_cast<ssize_t>(bytes.size()));
    }
    // How much a new pipe takes is up to the system; this much every pipe does.
    void make_small() const { EXPECT_EQ(::fcntl(out().GetInheritHandle(), F_SETPIPE_SZ, 4096), 4096); }
    std::unique_ptr<ioPipe> pipe{ioPipe::Create()};
};

TEST_F(Pipe, TrialsSeeWhatHasArrived) {
    const struct {
        void (*write)(ioStream &);
        ioTryCode (*attempt)(ioStream &);
        bool (*arrives)(ioStream &);
    } types[] = {
        {[](ioStream &to) { to.WriteByte('k'); }, [](ioStream &from) { return from.TryReadByte(); },
         [](ioStream &from) { return from.ReadByte() == 'k'; }},
        {[](ioStream &to) { to.WriteInt(-258); }, [](ioStream &from) { return from.TryReadInt(); },
         [](ioStream &from) { return from.ReadInt() == -258; }},
        {[](ioStream &to) { to.WriteBool(1); }, [](ioStream &from) { return from.TryReadBool(); },
         [](ioStream &from) { return from.ReadBool() == 1; }},
        {[](ioStream &to) { to.WriteReal(0.5); }, [](ioStream &from) { return from.TryReadReal(); },
         [](ioStream &from) { return from.ReadReal() == 0.5; }},
        {[](ioStream &to) { to.WriteString("abc"); }, [](ioStream &from) { return from.TryReadString(); },
         [](ioStream &from) { return text_of(from.ReadString()) == "abc"; }},
    };
    for (ioSerializer *encoding :
         {ioSerializer::getAscii(), ioSerializer::getBinary(), ioSerializer::getXDR()})
        for (const auto &[write, attempt, arrives] : types) {
            const std::unique_ptr<ioStringStream> memory(ioStringStream::Create());
            memory->setSerializer(encoding);
            write(*memory);
            if (encoding == ioSerializer::getAscii() && memory->PeekNBytes() > 1) memory->WriteByte('\n');
            const std::string bytes = drain(*memory);
            pipe.reset(ioPipe::Create());
            in().setSerializer(encoding);
            const std::unique_ptr<ioEvent> event(in().InputEvent());
            for (std::size_t sent = 0; sent < bytes.size(); ++sent) {
                const ioTryCode code = attempt(in());
                EXPECT_TRUE(code == ioWouldBlock || code == ioEndOfFile) << sent << " of " << bytes;
                EXPECT_EQ(event->Wait(0.0), sent > 0);
                send(bytes.substr(sent, 1));
                EXPECT_EQ(in().PeekNBytes(), sent + 1);
            }
            for (int again = 0; again < 2; ++again)
                EXPECT_EQ(attempt(in()), ioSuccess) << bytes;
            EXPECT_TRUE(in().PeekNBytes() == bytes.size() && in().getIsGood() && arrives(in())) << bytes;
            out().Close();
            EXPECT_EQ(attempt(in()), ioEndOfFile);
        }
}

TEST_F(Pipe, EventsTellOfInputAndOfRoom) {
    std::unique_ptr<ioEvent> input(in().InputEvent()), room(out().OutputEvent());
    EXPECT_TRUE(room->Wait(0.0) && !input->Wait(0.0));
    make_small();
    std::string block(4096, 'x');
    send(block);
    EXPECT_TRUE(input->Wait(INFINITE) && !room->Wait(0.0));
    in().ReadBytes(block.data(), 4096);
    EXPECT_TRUE(room->Wait(0.0) && !input->Wait(0.0));
}

TEST_F(Pipe, ALostReaderIsAnError) {
    for (bool close : {false, true}) {
        pipe.reset(ioPipe::Create());
        in().Close();
        out().WriteInt(1);
        EXPECT_TRUE(out().getIsGood());
        close ? out().Close() : static_cast<void>(out().Flush());
        EXPECT_TRUE(out().getIsBad()) << "what could not be handed on";
    }
}

// A pipe that nobody will read dies at once, whatever waits in it and in front of it.
TEST_F(Pipe, DiesWithBytesInsideIt) {
    make_small();
    std::string block(4096, 'x');
    out().WriteBytes(block.data(), 4096);
    out().Flush();
    out().WriteBytes(block.data(), 4000);
    const int handle = out().GetInheritHandle();
    pipe.reset();
    EXPECT_EQ(::fcntl(handle, F_GETFD), -1);
}

// A copy hands on what has arrived: if it waited for more, this would never end.
TEST_F(Pipe, ACopyDoesNotHoldBytesBack) {
    send("abc");
    Stream target;
    target.buffer->plain.limit = 2;
    EXPECT_EQ(failure([&] { CopyStream(&target, &in()); }, &target), "I/O error");
    EXPECT_EQ(target.written, "ab");
    EXPECT_EQ(in().PeekNBytes(), 1U);
}

}  // namespace
