// The stream core over a buffer and an encoder of the test's own: guards and their order, codes, the state
// word, messages, trials, copying.
#include "iolibsrc/stream_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <thread>
#include <vector>

namespace {

// A buffer without areas: every byte goes through the virtual calls, writes are refused from `limit` on.
class Plain : public std::streambuf {
public:
    std::string data, written;
    std::size_t at = 0, limit = SIZE_MAX;
    int synced = 0, sync_result = 0;

protected:
    int_type underflow() override { return at < data.size() ? static_cast<unsigned char>(data[at]) : -1; }
    int_type uflow() override { return at < data.size() ? static_cast<unsigned char>(data[at++]) : -1; }
    int_type overflow(int_type byte) override {
        if (written.size() >= limit) return -1;
        written.push_back(static_cast<char>(byte));
        return 0;
    }
    int sync() override {
        ++synced;
        return sync_result;
    }
};

// Tries input with `shown` and output into `taken`, when it may.
class Buffer : public xstreambuf {
public:
    Buffer() { InitStreamBuf(&plain); }
    btkBaseEvent *GetInputEvent() override {
        ++asked;
        return has_event ? new btkAlwaysEvent : nullptr;
    }
    btkBaseEvent *GetOutputEvent() override { return GetInputEvent(); }

    Plain plain, taken;
    std::string shown;
    bool tries = false, at_end = false, has_event = false;
    int begun = 0, ended = 0, asked = 0;

protected:
    std::streambuf *OnGetTryIBuf() override {
        if (!tries) return nullptr;
        if (at_end) SetEofReached();
        ++begun;
        m_view.TakeBuf(shown.data(), shown.size());
        return &m_view;
    }
    void OnFreeTryIBuf() override { ++ended; }
    std::streambuf *OnGetTryOBuf() override {
        begun += tries;
        return tries ? &taken : nullptr;
    }
    void OnFreeTryOBuf() override { ++ended; }

private:
    xtrystreambuf m_view;
};

// Answers the code that it is told to.
class Coder : public ioBinarySerializer {
public:
    ioTryCode code = ioSuccess;
    bool throws = false;

protected:
    ioTryCode RdInt(int &value, std::streambuf *from) override {
        if (throws) throw std::bad_alloc();
        return code == ioSuccess ? ioBinarySerializer::RdInt(value, from) : code;
    }
    ioTryCode WrInt(int value, std::streambuf *to) override {
        return code == ioSuccess ? ioBinarySerializer::WrInt(value, to) : code;
    }
};

class Stream : public ioStream {
public:
    explicit Stream(bool canwrite = true, bool canread = true, ioSerializer *with = ioSerializer::getBinary(),
                    Buffer *over = new Buffer)
        : ioStream(with, over, canwrite, canread), buffer(over) {}
    ~Stream() override {
        Close();
        EXPECT_EQ(closed, 1);
    }
    using ioStream::Throw;
    using ioStream::ThrowState;

    std::unique_ptr<Buffer> buffer;
    int closed = 0;
    std::string modes;

protected:
    void OnClose() override { ++closed; }
    void SetTextMode() override { modes += 't'; }
    void SetBinaryMode() override { modes += 'b'; }
};

const std::string not_open = "stream not open",
                  improper = "function \"\" can not be called in the current context";
std::string unsupported(const std::string &name) {
    return "function \"" + name + "\" not supported";
}

// Guards ---------------------------------------------------------------------------------------

// The operations by what is asked before they run. All of them read or write one byte at least, or none.
enum Kind { Typed, Raw, Sizes, Setter };
struct Operation {
    const char *name;
    bool input;
    Kind kind;
    void (*run)(Stream &);
};

char bytes[4] = {1, 2, 3, 4};
const Operation operations[] = {
    {"ReadByte", true, Typed, [](Stream &s) { s.ReadByte(); }},
    {"ReadInt", true, Typed, [](Stream &s) { s.ReadInt(); }},
    {"ReadBool", true, Typed, [](Stream &s) { s.ReadBool(); }},
    {"ReadReal", true, Typed, [](Stream &s) { s.ReadReal(); }},
    {"ReadString", true, Typed, [](Stream &s) { s.ReadString(); }},
    {"ReadBytes", true, Raw, [](Stream &s) { s.ReadBytes(bytes, 4); }},
    {"ReadBytes 0", true, Raw, [](Stream &s) { EXPECT_EQ(s.ReadBytes(nullptr, 0), 0U); }},
    {"TryReadByte", true, Raw, [](Stream &s) { s.TryReadByte(); }},
    {"PeekNBytes", true, Raw, [](Stream &s) { s.PeekNBytes(); }},
    {"InputEvent", true, Raw, [](Stream &s) { EXPECT_EQ(s.InputEvent(), nullptr); }},
    {"WriteByte", false, Typed, [](Stream &s) { s.WriteByte(1); }},
    {"WriteInt", false, Typed, [](Stream &s) { s.WriteInt(1); }},
    {"WriteBool", false, Typed, [](Stream &s) { s.WriteBool(1); }},
    {"WriteReal", false, Typed, [](Stream &s) { s.WriteReal(1); }},
    {"WriteString", false, Typed, [](Stream &s) { s.WriteString("1"); }},
    {"WriteBytes", false, Raw, [](Stream &s) { s.WriteBytes(bytes, 4); }},
    {"TryWriteByte", false, Raw, [](Stream &s) { s.TryWriteByte(1); }},
    {"OutputEvent", false, Raw, [](Stream &s) { EXPECT_EQ(s.OutputEvent(), nullptr); }},
    {"SizeOfByte", true, Sizes, [](Stream &s) { EXPECT_EQ(s.SizeOfByte(1), 1); }},
    {"SizeOf text", true, Sizes, [](Stream &s) { EXPECT_EQ(s.SizeOf("abc"), 7); }},
    {"setITimeout", true, Setter, [](Stream &s) { s.setITimeout(INFINITE); }},
    {"setIsBad", true, Setter, [](Stream &s) { s.setIsBad(true); }},
    {"setSerializer", true, Setter, [](Stream &s) { s.setSerializer(ioSerializer::getBinary()); }},
};

TEST(Stream, GuardsInTheirOrder) {
    for (const Operation &operation : operations) {
        for (int matter = 0; matter < 16; ++matter) {
            bool is_closed = matter & 1, is_bad = matter & 2, wrong_way = matter & 4, timed = matter & 8;
            Stream stream(operation.input || !wrong_way, !operation.input || !wrong_way);
            stream.buffer->plain.data = std::string(64, '\0');
            if (timed)
                operation.input ? stream.setITimeout(std::nextafter(INFINITE, 0.0)) : stream.setOTimeout(0.0);
            if (is_bad) stream.setIsBad(true);
            if (is_closed) stream.Close();
            std::string expected;
            bool guarded = operation.kind == Typed || operation.kind == Raw;
            if (is_closed) {
                expected = not_open;
            } else if (guarded && is_bad) {
                expected = "I/O error";
            } else if (guarded && wrong_way) {
                expected = operation.input ? "input denied" : "output denied";
            } else if (operation.kind == Typed && timed) {
                expected = unsupported(operation.input ? "ITimeout != INFINITE" : "OTimeout != INFINITE");
            }
            EXPECT_EQ(failure([&] { operation.run(stream); }, &stream), expected)
                << operation.name << ", matter " << matter;
            if (is_closed) continue;
            // An active stream keeps its serializer; one whose buffer cannot try has not become active.
            stream.setIsBad(false);
            std::string_view name = operation.name;
            bool active = guarded && expected.empty() && name.find("Event") == name.npos && name[0] != 'T';
            EXPECT_EQ(failure([&] { stream.setSerializer(ioSerializer::getXDR()); }), active ? improper : "")
                << name << ", matter " << matter;
            if (!active) {
                EXPECT_EQ(stream.buffer->plain.at + stream.buffer->plain.written.size(), 0U);
            }
        }
    }
}

TEST(Stream, ANewOneAndWhatItDoesNotOffer) {
    Stream stream, blind(true, false), closed(true, false);
    closed.Close();
    EXPECT_TRUE(stream.getIsOpen() && stream.getIsGood() && stream.getCanRead() && stream.getCanWrite());
    EXPECT_TRUE(kel::is_nil(stream.getITimeout()) && kel::is_nil(stream.getOTimeout()));
    EXPECT_EQ(stream.GetInheritHandle(), -1);
    EXPECT_EQ(failure([&] { stream.getBufferSize(); }), unsupported("getBufferSize"));
    EXPECT_EQ(failure([&] { blind.setBufferSize(1); }), unsupported("setBufferSize"));
    EXPECT_EQ(failure([&] { stream.Ignore(); }), unsupported("Ignore"));
    EXPECT_EQ(failure([&] { blind.Ignore(); }), "input denied");
    EXPECT_EQ(failure([&] { stream.getWouldDataLost(); }), unsupported("getWouldDataLost"));
    EXPECT_EQ(failure([&] { stream.Flush(false); }), unsupported("non-blocking Flush"));
    EXPECT_EQ(failure([&] { closed.getIsBuffered(); }), not_open);
    EXPECT_EQ(closed.Flush(), nullptr);
    Buffer unused;
    const std::string none = "not a stream error: kellib::XNotInitialized";
    EXPECT_EQ(failure([&] { Stream(true, true, nullptr, &unused); }), none);
    EXPECT_EQ(failure([&] { stream.setSerializer(nullptr); }), none);
    stream.modes.clear();
    stream.setSerializer(ioSerializer::getAscii());
    stream.setSerializer(ioSerializer::getXDR());
    EXPECT_EQ(stream.modes, "tb");
}

// Where a pointer to a virtual member of the class says that it stands.
template <class Member>
std::ptrdiff_t slot(Member member) {
    std::ptrdiff_t place;
    std::memcpy(&place, &member, sizeof place);
    return place / static_cast<std::ptrdiff_t>(sizeof(void *));
}

TEST(Stream, VirtualOperationsInTheirOrder) {
    struct Slots : Stream {
        static std::vector<std::ptrdiff_t> of() {
            return {slot(&Slots::OnClose), slot(&Slots::GetInheritHandle), slot(&Slots::SetTextMode),
                    slot(&Slots::SetBinaryMode)};
        }
    };
    std::ptrdiff_t first = Slots::of()[0];
    EXPECT_EQ(Slots::of(), (std::vector{first, first + 1, first + 2, first + 3}));
}

// State ----------------------------------------------------------------------------------------

TEST(Stream, CodesBecomeStatesAndMessages) {
    Coder coder;
    const char *messages[] = {
        "", "", "EOF reached", "I/O error", "conversion error", "function \"\" not supported"};
    for (int code = ioSuccess; code <= ioNotSupported; ++code) {
        Stream stream(true, true, &coder), other(true, true, &coder);
        stream.buffer->plain.data = "1234";
        coder.code = static_cast<ioTryCode>(code);
        EXPECT_EQ(failure([&] { stream.ReadInt(); }), messages[code]);
        EXPECT_EQ(failure([&] { other.WriteInt(1); }), messages[code]);
        for (Stream *one : {&stream, &other}) {
            EXPECT_EQ(one->getIsEof(), code == ioEndOfFile);
            EXPECT_EQ(one->getIsFail(), code == ioFormatError);
            EXPECT_EQ(one->getIsBad(), code == ioIOError);
            EXPECT_EQ(one->getIsGood(), code < ioEndOfFile || code == ioNotSupported);
        }
    }
}

TEST(Stream, TheFirstBitInTheOrderNamesTheState) {
    for (int bits = 0; bits < 32; ++bits) {
        const std::string name = bits & 1    ? "EOF reached"
                                 : bits & 4  ? "I/O error"
                                 : bits & 2  ? "conversion error"
                                 : bits & 8  ? "timeout expired"
                                 : bits & 16 ? "data lost"
                                             : "unknown error";
        Stream stream;
        EXPECT_EQ(failure([&] { stream.ThrowState(bits); }), name);
        EXPECT_EQ(failure([&] { stream.ReadInt(); }), bits ? name : "EOF reached");
        EXPECT_EQ(stream.getIsTimeout(), (bits & 8) != 0);
        EXPECT_EQ(stream.getIsDataLost(), (bits & 16) != 0);
        bits & 1 ? stream.setIsFail(false) : stream.setIsBad(false);
        EXPECT_TRUE(stream.getIsGood()) << "false clears all bits";
        stream.setIsFail(true);
        stream.setIsBad(true);
        EXPECT_EQ(failure([&] { stream.ReadInt(); }), "I/O error");
    }
    Stream stream;
    EXPECT_EQ(failure([&] { stream.Throw(ioImproperFunction, "here"); }),
              "function \"here\" can not be called in the current context");
    EXPECT_EQ(failure([&] { stream.Throw(ioIncompatibleFormat); }), "incompatible format");
    EXPECT_EQ(failure([&] { stream.Throw(static_cast<ioError>(6)); }), "unknown error");
}

kel::caught error_of(Stream &stream) {
    try {
        stream.ReadInt();
    } catch (xthrowable *thrown) {
        return kel::caught(thrown);
    }
    ADD_FAILURE() << "nothing was thrown";
    return kel::caught(nullptr);
}

// An error reports its stream as it is now, and may outlive it.
TEST(Stream, ErrorsAndStreamsMayDieInAnyOrder) {
    std::mt19937 random(3);
    for (int round = 0; round < 20; ++round) {
        auto stream = std::make_unique<Stream>();
        std::vector<kel::caught> errors;
        auto all_say = [&](ioStream *of, const std::string &message) {
            for (auto &error : errors) {
                EXPECT_EQ(error.as<ioXStream>()->getStream(), of);
                EXPECT_EQ(text_of(error.as<ioXStream>()->getMsg()), "Stream Error (iolib):" + message);
            }
        };
        for (int i = 0; i < 20; ++i) {
            errors.push_back(error_of(*stream));
            all_say(stream.get(), "EOF reached");
            stream->setIsBad(false);
            all_say(stream.get(), "unknown error");
            if (random() % 3 == 0) errors.erase(errors.begin() + static_cast<int>(random() % errors.size()));
        }
        stream->Close();
        all_say(stream.get(), not_open);
        stream.reset();
        all_say(nullptr, "EOF reached");  // as it was when it threw
        std::shuffle(errors.begin(), errors.end(), random);
    }
}

// Errors are deleted elsewhere while their stream goes on.
TEST(Stream, AnErrorMayEndInAnotherThread) {
    auto stream = std::make_unique<Stream>();
    std::vector<kel::caught> errors;
    for (int i = 0; i < 200; ++i) {
        errors.push_back(error_of(*stream));
        stream->setIsBad(false);
    }
    std::thread other([&] {
        while (errors.size() > 20)
            errors.erase(errors.begin() + static_cast<int>(errors.size() / 2));
    });
    for (int i = 0; i < 200; ++i) {
        error_of(*stream);
        stream->setIsBad(false);
    }
    other.join();
    stream.reset();
}

// Trials ---------------------------------------------------------------------------------------

TEST(Stream, TrialsAnswerCodesAndLeaveTheStateAlone) {
    Coder coder;
    Stream stream(true, true, &coder);
    Buffer &buffer = *stream.buffer;
    EXPECT_EQ(stream.TryReadInt(), ioNotSupported);
    EXPECT_EQ(stream.TryWriteInt(1), ioNotSupported);
    buffer.tries = true;
    for (bool at_end : {false, true}) {
        buffer.at_end = at_end;
        for (int code = ioWouldBlock; code <= ioNotSupported; ++code) {
            coder.code = static_cast<ioTryCode>(code);
            EXPECT_EQ(stream.TryReadInt(), at_end && code == ioWouldBlock ? ioEndOfFile : coder.code);
            EXPECT_EQ(stream.TryWriteInt(1), coder.code);
        }
    }
    EXPECT_EQ(failure([&] { stream.setSerializer(&coder); }), improper);
    coder.code = ioSuccess;
    buffer.shown = std::string("\1\0\0\0", 4);
    EXPECT_EQ(stream.TryReadByte() + stream.TryReadInt() + stream.TryReadBool(), ioSuccess);
    EXPECT_EQ(stream.TryReadReal(), ioEndOfFile);
    EXPECT_EQ(stream.TryReadString(), ioEndOfFile);
    EXPECT_EQ(stream.TryWriteByte(1) + stream.TryWriteInt(1) + stream.TryWriteBool(1) +
                  stream.TryWriteReal(1.0) + stream.TryWriteString(""),
              ioSuccess);
    EXPECT_EQ(buffer.taken.written, std::string("\1\1\0\0\0\1\0\0\0\0\0\0\xF0\x3F\0\0\0\0", 18));
    EXPECT_EQ(stream.PeekNBytes(), 4U);
    coder.throws = true;
    EXPECT_THROW(stream.TryReadInt(), std::bad_alloc);
    EXPECT_TRUE(stream.getIsGood());
    EXPECT_GT(buffer.begun, 30);
    EXPECT_EQ(buffer.ended, buffer.begun) << "every trial that began has ended";
    buffer.tries = false;
    EXPECT_EQ(stream.PeekNBytes(), 0U);
}

TEST(Stream, EventsBelongToTheCaller) {
    Stream stream;
    stream.buffer->has_event = true;
    std::unique_ptr<ioEvent> input(stream.InputEvent()), output(stream.OutputEvent());
    EXPECT_TRUE(input->getStream() == &stream && input->getIsSignaled() && output->Wait(0.0));
    EXPECT_TRUE(input->getType() == ioInputPending && output->getType() == ioOutputPending);
}

// Copying --------------------------------------------------------------------------------------

TEST(CopyStream, CopiesAllAndLeavesTheSourceGood) {
    std::mt19937 random(11);
    for (std::size_t size : {0U, 1U, 4095U, 4096U, 4097U, 65536U, 1000003U}) {
        std::string data(size, '\0');
        for (char &byte : data)
            byte = static_cast<char>(random());
        Stream target, second, source;
        source.buffer->plain.data = data;
        CopyStream(&target, &source);
        std::unique_ptr<ioStringStream> memory(ioStringStream::Create());
        memory->setSerializer(ioSerializer::getBinary());
        memory->WriteBytes(data.data(), static_cast<unsigned>(size));
        memory->WriteStream(&second);
        EXPECT_EQ(memory->PeekNBytes(), 0U);
        EXPECT_TRUE(target.buffer->plain.written == data && second.buffer->plain.written == data) << size;
        EXPECT_TRUE(source.getIsGood() && target.getIsGood() && memory->getIsGood());
        for (Stream *active : {&target, &source})
            EXPECT_EQ(failure([&] { active->setSerializer(ioSerializer::getXDR()); }), improper);
    }
}

TEST(CopyStream, Refuses) {
    ioBinarySerializer twin;
    Stream source, target, other(true, true, &twin), reader(false, true), writer(true, false), failed, closed;
    source.buffer->plain.data = "abc";
    failed.setIsFail(true);
    closed.Close();
    const struct {
        Stream *target, *source, *blamed;
        const char *message;
    } cases[] = {
        {&other, &source, &source, "incompatible format"},  // encoders are told apart as objects
        {&source, &source, &source, "function \"CopyStream\" can not be called in the current context"},
        {&target, &writer, &writer, "input denied"},
        {&reader, &source, &reader, "output denied"},
        {&reader, &writer, &writer, "input denied"},  // the source first
        {&failed, &source, &failed, "conversion error"},
        {&closed, &source, &closed, "stream not open"},
        {nullptr, &source, nullptr, "not a stream error: kellib::XNotInitialized"},
    };
    for (const auto &one : cases) {
        EXPECT_EQ(failure([&] { CopyStream(one.target, one.source); }, one.blamed), one.message);
        EXPECT_EQ(source.buffer->plain.at, 0U) << "nothing was read";
    }
    source.setSerializer(ioSerializer::getAscii());
}

TEST(CopyStream, AShortWriteIsTheTargetsFailure) {
    Stream source, target, full;
    source.buffer->plain.data = std::string(10000, 'x');
    target.buffer->plain.limit = 5000;
    EXPECT_EQ(failure([&] { CopyStream(&target, &source); }, &target), "I/O error");
    EXPECT_TRUE(target.getIsBad() && source.getIsGood());
    EXPECT_EQ(target.buffer->plain.written.size(), 5000U);
    full.buffer->plain.limit = 7;
    std::unique_ptr<ioStringStream> memory(ioStringStream::Create("0123456789"));
    memory->setSerializer(ioSerializer::getBinary());
    EXPECT_EQ(failure([&] { CopyStream(&full, memory.get()); }, &full), "I/O error");
    EXPECT_EQ(drain(*memory), "789") << "what was not taken is still there";
}

// The end that is typed at a terminal passes: who asks once too often waits for what is typed behind it.
TEST(CopyStream, EndsAtTheFirstEndOfATerminal) {
    int keyboard = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_TRUE(keyboard >= 0 && ::grantpt(keyboard) == 0 && ::unlockpt(keyboard) == 0);
    std::unique_ptr<ioStream> terminal(ioFileStream::Open(::ptsname(keyboard), ioReadOnly));
    std::string keys = "\4a\n\4b\n";
    ASSERT_EQ(::write(keyboard, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    std::unique_ptr<ioStringStream> copy(ioStringStream::Create());
    CopyStream(copy.get(), terminal.get());
    EXPECT_EQ(text_of(copy->getStr()), "");
    CopyStream(copy.get(), terminal.get());
    EXPECT_EQ(text_of(copy->getStr()), "a\n");
    EXPECT_EQ(text_of(terminal->ReadString()), "b");
    ::close(keyboard);
}

TEST(Stream, DeclaresItsFields) {
    Stream stream(true, false), reader(false, true);
    xobject *object = &stream;
    EXPECT_EQ(static_cast<xobject *>(object->lookupfield("Serializer")), ioSerializer::getBinary());
    EXPECT_TRUE(object->lookupfield("CanWrite").getbool() && !object->lookupfield("CanRead").getbool());
    EXPECT_TRUE(object->lookupfield("ITimeout").isnil()) << "without limit is nil";
    kel::caught error = error_of(reader);
    EXPECT_EQ(static_cast<xobject *>(error->lookupfield("Stream")), &reader);
    EXPECT_STREQ(error->lookupfield("Msg").getstring(), "Stream Error (iolib):EOF reached");
    EXPECT_STREQ(xrtti_get_p_ioTryCode()->getenumvaluebyindex(ioNotSupported), "ioNotSupported");
    EXPECT_EQ(xrtti_get_p_ioEvent()->getparenttype(0), xrtti_get_p_evtEvent());
    std::string names;
    for (brtti *type : std::initializer_list<brtti *>{xrtti_get_p_ioEvent(), xrtti_get_p_ioEventType(),
                                                      xrtti_get_p_ioTryCode(), xrtti_get_p_ioError(),
                                                      xrtti_get_p_ioOpenMode(), xrtti_get_p_ioDirection(),
                                                      xrtti_get_p_ioPipeStream(), xrtti_get_p_ioPipe()})
        names += type->gettypename().Str() + std::string(" ");
    EXPECT_EQ(names,
              "iolib::Event iolib::EventType iolib::TryCode iolib::Error iolib::OpenMode "
              "iolib::Direction iolib::PipeStream iolib::Pipe ");
}

}  // namespace
