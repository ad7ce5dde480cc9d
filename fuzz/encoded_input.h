// How the fuzz targets of the encodings take their input apart: a byte for the size of the pieces in which
// the data arrives, a count, that many bytes for the types of the values to read (over and over), and the
// data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "encoders.h"

struct EncodedInput {
    enum Type { Byte, Int, Bool, Real, String, Types };

    EncodedInput(const std::uint8_t *input, std::size_t size) {
        std::string bytes(reinterpret_cast<const char *>(input), size);
        const auto take = [&bytes](std::size_t most) {
            std::string head = bytes.substr(0, most);
            bytes.erase(0, head.size());
            return head;
        };
        const std::string head = take(2) + std::string(2, '\0');
        const std::size_t chosen = static_cast<unsigned char>(head[0]);
        // As it comes, without a get area, in few bytes, in many.
        piece = chosen == 0 ? encoders::Source::never : chosen == 1 ? 0 : chosen < 128 ? chosen : chosen * 16;
        types = take(static_cast<unsigned char>(head[1]) % 16) + std::string(1, '\0');
        data = bytes;
    }
    Type type(std::size_t i) const {
        return static_cast<Type>(static_cast<unsigned char>(types[i % types.size()]) % Types);
    }

    std::size_t piece;
    std::string types;
    std::string data;
};

inline void require(bool holds, const char *what, std::size_t value_index, std::size_t position) {
    if (holds) return;
    std::fprintf(stderr, "value %zu, read up to %zu: %s\n", value_index, position, what);
    std::abort();
}
