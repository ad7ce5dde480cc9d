// What the tests of the streams share: how an operation fails, and what is still to read.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include <kelstdmt/iolib.h>
#include <kelstdmt/kel.h>

// The message of the stream error that the action throws, without its prefix; "" when it throws nothing.
template <class Action>
std::string failure(Action action, ioStream *expected = nullptr) {
    const std::string prefix = "Stream Error (iolib):";
    try {
        action();
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        auto *stream_error = error.as<ioXStream>();
        if (!stream_error) return std::string("not a stream error: ") + error.type_name().Str();
        if (expected && stream_error->getStream() != expected) return "of another stream";
        std::string message = stream_error->getMsg().Str();
        if (message.compare(0, prefix.size(), prefix) != 0) return "without its prefix: " + message;
        return message.substr(prefix.size());
    }
    return "";
}

inline std::string text_of(const xstring &text) {
    return std::string(kel::view(text));
}

// Everything that a stream still holds.
inline std::string drain(ioStream &stream) {
    std::string all;
    char block[777];
    try {
        for (;;)
            all.append(block, stream.ReadBytes(block, sizeof block));
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        EXPECT_TRUE(stream.getIsEof());
    }
    return all;
}
