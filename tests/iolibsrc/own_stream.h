// A stream over a buffer of the test's own, which tells what was done to it and refuses what it is told to.
#pragma once

#include <cstdint>
#include <streambuf>

#include "iolibsrc/stream_support.h"

// A buffer without areas: every byte goes through the virtual calls, writes are refused from `limit` on.
class Plain : public std::streambuf {
public:
    std::string data, written;
    std::size_t at = 0, limit = SIZE_MAX;
    int synced = 0;

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
        return 0;
    }
};

// Trials take place in `taken`, when they may.
class Buffer : public xstreambuf {
public:
    Buffer() { InitStreamBuf(&plain); }
    btkBaseEvent *GetInputEvent() override { return has_event ? new btkAlwaysEvent : nullptr; }
    btkBaseEvent *GetOutputEvent() override { return GetInputEvent(); }

    Plain plain, taken;
    bool tries = false, at_end = false, has_event = false;
    int begun = 0, ended = 0;

protected:
    std::streambuf *OnGetTryIBuf() override {
        if (at_end) SetEofReached();
        return OnGetTryOBuf();
    }
    void OnFreeTryIBuf() override { ++ended; }
    std::streambuf *OnGetTryOBuf() override {
        begun += tries;
        return tries ? &taken : nullptr;
    }
    void OnFreeTryOBuf() override { ++ended; }
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

    const std::unique_ptr<Buffer> buffer;
    std::string &data = buffer->plain.data, &written = buffer->plain.written;
    int closed = 0;
    std::string modes;

protected:
    void OnClose() override { ++closed; }
    void SetTextMode() override { modes += 't'; }
    void SetBinaryMode() override { modes += 'b'; }
};
