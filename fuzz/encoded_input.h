// How the fuzz targets of the encodings take their input apart: a byte for the size of the pieces in which
// the data arrives, a count, that many bytes for the types of the values to read (over and over), and the
// data.
#pragma once

#include "encoders.h"
#include "fuzzing.h"

struct EncodedInput {
    enum Type { Byte, Int, Bool, Real, String, Types };

    EncodedInput(const std::uint8_t *bytes, std::size_t size) {
        fuzz::Input input(bytes, size);
        const std::size_t chosen = input.byte();
        // As it comes, without a get area, in few bytes, in many.
        piece = chosen == 0 ? encoders::Source::never : chosen == 1 ? 0 : chosen < 128 ? chosen : chosen * 16;
        types = input.take(input.below(16)) + std::string(1, '\0');
        data = input.rest;
    }
    Type type(std::size_t i) const {
        return static_cast<Type>(static_cast<unsigned char>(types[i % types.size()]) % Types);
    }

    std::size_t piece;
    std::string types;
    std::string data;
};
