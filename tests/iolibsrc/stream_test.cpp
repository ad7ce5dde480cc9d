// The stream core over a buffer and an encoder of the test's own: guards and their order, codes, the state
// word, messages, trials, copying, and what is declared.
#include "iolibsrc/stream_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <functional>
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
        if (closed_at_death) *closed_at_death = closed;
    }
    using ioStream::Throw;
    using ioStream::ThrowState;

    std::unique_ptr<Buffer> buffer;
    int closed = 0, *closed_at_death = nullptr;
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
    std::function<void(Stream &)> run;
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
    {"TryReadString", true, Raw, [](Stream &s) { s.TryReadString(); }},
    {"PeekNBytes", true, Raw, [](Stream &s) { s.PeekNBytes(); }},
    {"InputEvent", true, Raw, [](Stream &s) { EXPECT_EQ(s.InputEvent(), nullptr); }},
    {"WriteByte", false, Typed, [](Stream &s) { s.WriteByte(1); }},
    {"WriteInt", false, Typed, [](Stream &s) { s.WriteInt(1); }},
    {"WriteBool", false, Typed, [](Stream &s) { s.WriteBool(1); }},
    {"WriteReal", false, Typed, [](Stream &s) { s.WriteReal(1); }},
    {"WriteString", false, Typed, [](Stream &s) { s.WriteString("1"); }},
    {"WriteBytes", false, Raw, [](Stream &s) { s.WriteBytes(bytes, 4); }},
    {"WriteBytes 0", false, Raw, [](Stream &s) { s.WriteBytes(nullptr, 0); }},
    {"TryWriteByte", false, Raw, [](Stream &s) { s.TryWriteByte(1); }},
    {"TryWriteString", false, Raw, [](Stream &s) { s.TryWriteString("1"); }},
    {"OutputEvent", false, Raw, [](Stream &s) { EXPECT_EQ(s.OutputEvent(), nullptr); }},
    {"SizeOfByte", true, Sizes, [](Stream &s) { EXPECT_EQ(s.SizeOfByte(1), 1); }},
    {"SizeOf int", true, Sizes, [](Stream &s) { EXPECT_EQ(s.SizeOf(1), 4); }},
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
            if (timed) operation.input ? stream.setITimeout(5.0) : stream.setOTimeout(0.0);
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
    Stream stream, blind(true, false);
    EXPECT_TRUE(stream.getIsOpen() && stream.getIsGood() && stream.getCanRead() && stream.getCanWrite());
    EXPECT_EQ(std::bit_cast<std::uint64_t>(stream.getITimeout()), 0x5A17A2ECC414A040U);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(stream.getOTimeout()), 0x5A17A2ECC414A040U);
    EXPECT_EQ(stream.GetInheritHandle(), -1);
    const std::pair<const char *, std::function<void(Stream &)>> missing[] = {
        {"getIsBuffered", [](Stream &s) { s.getIsBuffered(); }},
        {"getBufferSize", [](Stream &s) { s.getBufferSize(); }},
        {"setBufferSize", [](Stream &s) { s.setBufferSize(1); }},
        {"Ignore", [](Stream &s) { s.Ignore(); }},
        {"getWouldDataLost", [](Stream &s) { s.getWouldDataLost(); }},
        {"non-blocking Flush", [](Stream &s) { s.Flush(false); }},
    };
    for (auto &[name, run] : missing)
        EXPECT_EQ(failure([&] { run(stream); }), unsupported(name));
    EXPECT_EQ(failure([&] { blind.Ignore(); }), "input denied");
    EXPECT_EQ(failure([&] { blind.getWouldDataLost(); }), "input denied");
    EXPECT_EQ(failure([&] { blind.getIsBuffered(); }), unsupported("getIsBuffered"));
    blind.Close();
    EXPECT_EQ(failure([&] { blind.getIsBuffered(); }), not_open);
    EXPECT_EQ(blind.Flush(), nullptr);
    Buffer unused;
    const std::string none = "not a stream error: kellib::XNotInitialized";
    EXPECT_EQ(failure([&] { Stream(true, true, nullptr, &unused); }), none);
    EXPECT_EQ(failure([&] { stream.setSerializer(nullptr); }), none);
    stream.modes.clear();
    stream.setSerializer(ioSerializer::getAscii());
    stream.setSerializer(ioSerializer::getXDR());
    EXPECT_EQ(stream.modes, "tb");
    EXPECT_EQ(stream.getSerializer(), ioSerializer::getXDR());
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

TEST(Stream, OnlyTheExactTimeOutIsNone) {
    Stream stream;
    stream.buffer->plain.data = "0123456789";
    for (double finite : {0.0, -1.0, std::nextafter(INFINITE, 0.0)}) {
        stream.setITimeout(finite);
        EXPECT_EQ(failure([&] { stream.ReadByte(); }), unsupported("ITimeout != INFINITE"));
        EXPECT_EQ(failure([&] { stream.WriteInt(1); }), "") << "the other direction goes on";
        EXPECT_EQ(stream.ReadBytes(bytes, 1), 1U) << "raw reads do not mind";
    }
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
        for (int i = 0; i < 20; ++i) {
            errors.push_back(error_of(*stream));
            auto *error = errors.back().as<ioXStream>();
            EXPECT_STREQ(error->getMsg(), "Stream Error (iolib):EOF reached");
            stream->setIsBad(false);
            EXPECT_STREQ(error->getMsg(), "Stream Error (iolib):unknown error") << "as it is now";
            if (random() % 3 == 0) errors.erase(errors.begin() + static_cast<int>(random() % errors.size()));
        }
        stream->Close();
        for (auto &error : errors) {
            EXPECT_EQ(error.as<ioXStream>()->getStream(), stream.get());
            EXPECT_STREQ(error.as<ioXStream>()->getMsg(), "Stream Error (iolib):stream not open");
        }
        stream.reset();
        std::shuffle(errors.begin(), errors.end(), random);
        for (auto &error : errors) {
            EXPECT_EQ(error.as<ioXStream>()->getStream(), nullptr);
            EXPECT_TRUE(error->lookupfield("Stream").isnil());
            EXPECT_STREQ(error.as<ioXStream>()->getMsg(), "Stream Error (iolib):EOF reached")
                << "as it was when it threw";
        }
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

TEST(Stream, ClosesOnce) {
    int closed = 0;
    {
        Stream stream;
        stream.closed_at_death = &closed;
        stream.Close();
        EXPECT_FALSE(stream.getIsOpen());
    }
    EXPECT_EQ(closed, 1);
}

// Values ---------------------------------------------------------------------------------------

// Trials ---------------------------------------------------------------------------------------

TEST(Stream, TrialsAnswerCodesAndLeaveTheStateAlone) {
    Coder coder;
    Stream stream(true, true, &coder);
    Buffer &buffer = *stream.buffer;
    EXPECT_EQ(stream.TryReadInt(), ioNotSupported);
    EXPECT_EQ(stream.TryWriteInt(1), ioNotSupported);
    EXPECT_EQ(buffer.begun + buffer.ended, 0);
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
    const std::pair<ioTryCode, ioTryCode> reads[] = {{stream.TryReadByte(), ioSuccess},
                                                     {stream.TryReadInt(), ioSuccess},
                                                     {stream.TryReadBool(), ioSuccess},
                                                     {stream.TryReadReal(), ioEndOfFile},
                                                     {stream.TryReadString(), ioEndOfFile}};
    for (auto [code, expected] : reads)
        EXPECT_EQ(code, expected);
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

TEST(Stream, ATextIsWholeAtItsDelimiter) {
    Stream stream(true, true, ioSerializer::getAscii()), binary;
    stream.buffer->tries = binary.buffer->tries = true;
    const struct {
        const char *shown, *delimiters;
        ioTryCode open, at_end;
    } cases[] = {{" \n ", "\n", ioEndOfFile, ioEndOfFile},   {"abc", xstrNullStr, ioWouldBlock, ioSuccess},
                 {"  abc\n", "", ioSuccess, ioSuccess},      {"abc def", " ", ioSuccess, ioSuccess},
                 {"abc def", "; ", ioWouldBlock, ioSuccess}, {";", ";", ioFormatError, ioFormatError}};
    for (const auto &one : cases)
        for (bool at_end : {false, true}) {
            stream.buffer->shown = one.shown;
            stream.buffer->at_end = at_end;
            EXPECT_EQ(stream.TryReadString(one.delimiters), at_end ? one.at_end : one.open) << one.shown;
        }
    binary.buffer->shown = std::string("\2\0\0\0ab", 6);
    EXPECT_EQ(binary.TryReadString(), ioSuccess) << "its length is known";
}

TEST(Stream, EventsBelongToTheCaller) {
    Stream stream;
    stream.buffer->has_event = true;
    std::unique_ptr<ioEvent> input(stream.InputEvent()), output(stream.OutputEvent());
    EXPECT_TRUE(input->getStream() == &stream && input->getIsSignaled() && output->Wait(0.0));
    EXPECT_TRUE(input->getType() == ioInputPending && output->getType() == ioOutputPending);
    EXPECT_EQ(ioEvent::cast(static_cast<xobject *>(output.get())), output.get());
    EXPECT_EQ(static_cast<xobject *>(output->lookupfield("Stream")), &stream);
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

class DescriptorStream : public ioStream {
public:
    explicit DescriptorStream(xipipebuf *over)
        : ioStream(ioSerializer::getAscii(), over, false, true), m_over(over) {}
    ~DescriptorStream() override { Close(); }

private:
    void OnClose() override { m_over.reset(); }
    std::unique_ptr<xipipebuf> m_over;
};

// The end that is typed at a terminal passes: who asks once too often waits for what is typed behind it.
TEST(CopyStream, EndsAtTheFirstEndOfATerminal) {
    for (bool as_file : {true, false}) {
        int keyboard = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        ASSERT_TRUE(keyboard >= 0 && ::grantpt(keyboard) == 0 && ::unlockpt(keyboard) == 0);
        const char *path = ::ptsname(keyboard);
        std::unique_ptr<ioStream> terminal;
        if (as_file)
            terminal.reset(ioFileStream::Open(path, ioReadOnly));
        else
            terminal = std::make_unique<DescriptorStream>(new xipipebuf(::open(path, O_RDONLY | O_NOCTTY)));
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
}

// Declared types -------------------------------------------------------------------------------

std::string declaration(brtti *type) {
    std::string text = type->gettypename().Str();
    if (type->isenum()) {
        for (int i = 0; i < type->getnenumvalues(); ++i)
            text += std::string(i ? ", " : ": ") + type->getenumvaluebyindex(i).Str();
        return text;
    }
    auto *whole = static_cast<xrttistruct *>(type);
    EXPECT_FALSE(whole->getisrefcount()) << text;
    if (type->getnparents()) text += std::string(" of ") + type->getparenttype(0)->gettypename().Str();
    for (int i = 0; i < type->getnfields(); ++i) {
        xrttifield *field = whole->getfields()->getbyindex(i);
        text += (i ? ", " : ": ") + text_of(field->getname()) + " " + field->gettype()->gettypename().Str();
        if (field->getisoptional()) text += "?";
    }
    return text;
}

TEST(Declared, TypesOfTheModule) {
    brtti *types[] = {xrtti_get_p_ioEventType(),   xrtti_get_p_ioEvent(),      xrtti_get_p_ioSerializer(),
                      xrtti_get_p_ioTryCode(),     xrtti_get_p_ioStream(),     xrtti_get_p_ioError(),
                      xrtti_get_p_ioXStream(),     xrtti_get_p_ioOpenMode(),   xrtti_get_p_ioDirection(),
                      xrtti_get_p_ioFileStream(),  xrtti_get_p_ioPipeStream(), xrtti_get_p_ioPipe(),
                      xrtti_get_p_ioStringStream()};
    const char *expected[] = {
        "iolib::EventType: ioInputPending, ioOutputPending",
        "iolib::Event of eventlib::Event: Stream iolib::Stream, Type iolib::EventType",
        "iolib::Serializer: Ascii iolib::Serializer, Binary iolib::Serializer, XDR iolib::Serializer",
        "iolib::TryCode: ioSuccess, ioWouldBlock, ioEndOfFile, ioIOError, ioFormatError, ioNotSupported",
        "iolib::Stream: Serializer iolib::Serializer, IsOpen bool, CanRead bool, CanWrite bool, IsBuffered "
        "bool, BufferSize int, ITimeout real?, OTimeout real?, IsEof bool, IsFail bool, IsBad bool, IsGood "
        "bool, IsTimeout bool, IsDataLost bool, WouldDataLost bool, Stdin iolib::Stream, Stdout "
        "iolib::Stream, Stderr iolib::Stream",
        ("iolib::Error: ioStreamState, ioInputNotAllowed, ioOutputNotAllowed, ioIncompatibleFormat, "
         "ioImproperFunction, ioUnsupportedFunction"),
        "iolib::XStream: Stream iolib::Stream, Error iolib::Error, Msg string?",
        "iolib::OpenMode: ioReadOnly, ioWriteOnly, ioReadWrite",
        "iolib::Direction: ioBegin, ioEnd, ioCur",
        "iolib::FileStream of iolib::Stream: Path string",
        "iolib::PipeStream of iolib::Stream",
        "iolib::Pipe",
        "iolib::StringStream of iolib::Stream: Str string",
    };
    for (std::size_t i = 0; i < std::size(types); ++i)
        EXPECT_EQ(declaration(types[i]), expected[i]);
}

TEST(Declared, FieldsReadTheStream) {
    Stream stream(true, false), reader(false, true);
    xobject *object = &stream;
    EXPECT_EQ(ioStream::cast(object), &stream) << "through a virtual base";
    EXPECT_EQ(static_cast<xobject *>(object->lookupfield("Serializer")), ioSerializer::getBinary());
    EXPECT_TRUE(object->lookupfield("CanWrite").getbool() && !object->lookupfield("CanRead").getbool());
    EXPECT_TRUE(object->lookupfield("ITimeout").isnil()) << "without limit is nil";
    EXPECT_EQ(failure([&] { object->lookupfield("BufferSize"); }), unsupported("getBufferSize"));
    kel::caught error = error_of(reader);
    EXPECT_FALSE(error->isrefcountable());
    EXPECT_EQ(static_cast<xobject *>(error->lookupfield("Stream")), &reader);
    EXPECT_STREQ(error->lookupfield("Msg").getstring(), "Stream Error (iolib):EOF reached");
}

}  // namespace
