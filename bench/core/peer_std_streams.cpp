// The standard library's file streams: formatted for text; raw bytes, swapped for XDR, for the other two.
#include <bit>
#include <cstdint>
#include <fstream>

#include "loops.h"

namespace bench {
namespace {

struct Strings {
    using Text = std::string;
    using TextBack = std::string;
    static const std::string &make(const std::string &text) { return text; }
    static bool same(const std::string &text, const std::string &wanted) { return text == wanted; }
};

struct TextFormat : Strings {
    class Writer {
    public:
        explicit Writer(const char *path) : m_file(path) {}
        template <class Value>
        void put(const Value &value) {
            m_file << value << '\n';
        }
        bool finish() {
            m_file.close();
            return m_file.good();
        }

    private:
        std::ofstream m_file;
    };

    class Reader {
    public:
        explicit Reader(const char *path) : m_file(path) {}
        template <class Value>
        void get(Value &value) {
            m_file >> value;
        }
        void get(std::string &value) { std::getline(m_file, value); }

    private:
        std::ifstream m_file;
    };
};

template <bool BigEndian, class Bits>
Bits ordered(Bits bits) {
    if constexpr (!BigEndian)
        return bits;
    else if constexpr (sizeof(Bits) == 4)
        return __builtin_bswap32(bits);
    else
        return __builtin_bswap64(bits);
}

template <bool BigEndian>
struct BinaryFormat : Strings {
    class Writer {
    public:
        explicit Writer(const char *path) : m_file(path, std::ios::binary) {}
        void put(int value) { put_bits(std::bit_cast<std::uint32_t>(value)); }
        void put(double value) { put_bits(std::bit_cast<std::uint64_t>(value)); }
        void put(const std::string &value) {
            put_bits(static_cast<std::uint32_t>(value.size()));
            m_file.write(value.data(), static_cast<std::streamsize>(value.size()));
        }
        bool finish() {
            m_file.close();
            return m_file.good();
        }

    private:
        template <class Bits>
        void put_bits(Bits bits) {
            bits = ordered<BigEndian>(bits);
            m_file.write(reinterpret_cast<const char *>(&bits), sizeof bits);
        }
        std::ofstream m_file;
    };

    class Reader {
    public:
        explicit Reader(const char *path) : m_file(path, std::ios::binary) {}
        void get(int &value) { value = std::bit_cast<int>(get_bits<std::uint32_t>()); }
        void get(double &value) { value = std::bit_cast<double>(get_bits<std::uint64_t>()); }
        void get(std::string &value) {
            value.resize(get_bits<std::uint32_t>());
            m_file.read(value.data(), static_cast<std::streamsize>(value.size()));
        }

    private:
        template <class Bits>
        Bits get_bits() {
            Bits bits{};
            m_file.read(reinterpret_cast<char *>(&bits), sizeof bits);
            return ordered<BigEndian>(bits);
        }
        std::ifstream m_file;
    };
};

}  // namespace

void add_std_streams(Suite &suite) {
    add_files<TextFormat>(suite, Library::Std, "std::fstream", "text");
    add_files<BinaryFormat<false>>(suite, Library::Std, "std::fstream", "binary");
    add_files<BinaryFormat<true>>(suite, Library::Std, "std::fstream", "xdr");
}

}  // namespace bench
