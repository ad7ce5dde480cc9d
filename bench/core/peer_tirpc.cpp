// libtirpc: XDR over the C library's streams, and in records over a descriptor.
#ifdef KELSTDMT_PEER_TIRPC
#include <fcntl.h>
#include <rpc/xdr.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "loops.h"

namespace bench {
namespace {

// Long enough for every text of the inputs.
struct ShortText {
    char bytes[32] = {};
};

struct Strings {
    using Text = std::string;
    using TextBack = ShortText;
    static const std::string &make(const std::string &text) { return text; }
    static bool same(const ShortText &text, const std::string &wanted) { return wanted == text.bytes; }
};

// What both ways share: the conversions of the values.
class Coder {
public:
    void put(int value) { m_good &= xdr_int(&m_xdr, &value) != 0; }
    void put(double value) { m_good &= xdr_double(&m_xdr, &value) != 0; }
    void put(const std::string &value) {
        char *text = const_cast<char *>(value.c_str());
        m_good &= xdr_string(&m_xdr, &text, sizeof(ShortText::bytes)) != 0;
    }
    void get(int &value) { xdr_int(&m_xdr, &value); }
    void get(double &value) { xdr_double(&m_xdr, &value); }
    void get(ShortText &value) {
        char *text = value.bytes;
        xdr_string(&m_xdr, &text, sizeof value.bytes);
    }

protected:
    XDR m_xdr{};
    bool m_good = true;
};

struct Stdio : Strings {
    class Writer : public Coder {
    public:
        explicit Writer(const char *path) : m_file(std::fopen(path, "wb")) {
            xdrstdio_create(&m_xdr, m_file, XDR_ENCODE);
        }
        bool finish() {
            xdr_destroy(&m_xdr);
            return std::fclose(m_file) == 0 && m_good;
        }

    private:
        std::FILE *m_file;
    };

    class Reader : public Coder {
    public:
        explicit Reader(const char *path) : m_file(std::fopen(path, "rb")) {
            xdrstdio_create(&m_xdr, m_file, XDR_DECODE);
        }
        ~Reader() {
            xdr_destroy(&m_xdr);
            std::fclose(m_file);
        }

    private:
        std::FILE *m_file;
    };
};

int read_from(void *handle, void *bytes, int count) {
    ssize_t got = read(*static_cast<int *>(handle), bytes, static_cast<std::size_t>(count));
    return got > 0 ? static_cast<int>(got) : -1;
}
int write_to(void *handle, void *bytes, int count) {
    return static_cast<int>(write(*static_cast<int *>(handle), bytes, static_cast<std::size_t>(count)));
}

struct Records : Strings {
    static constexpr unsigned buffer_size = 65'536;

    class Writer : public Coder {
    public:
        explicit Writer(const char *path)
            : m_descriptor(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
            xdrrec_create(&m_xdr, buffer_size, buffer_size, &m_descriptor, read_from, write_to);
            m_xdr.x_op = XDR_ENCODE;
        }
        bool finish() {
            m_good &= xdrrec_endofrecord(&m_xdr, 1) != 0;
            xdr_destroy(&m_xdr);
            return close(m_descriptor) == 0 && m_good;
        }

    private:
        int m_descriptor;
    };

    class Reader : public Coder {
    public:
        explicit Reader(const char *path) : m_descriptor(open(path, O_RDONLY | O_CLOEXEC)) {
            xdrrec_create(&m_xdr, buffer_size, buffer_size, &m_descriptor, read_from, write_to);
            m_xdr.x_op = XDR_DECODE;
            xdrrec_skiprecord(&m_xdr);
        }
        ~Reader() {
            xdr_destroy(&m_xdr);
            close(m_descriptor);
        }

    private:
        int m_descriptor;
    };
};

}  // namespace

void add_tirpc(Suite &suite) {
    add_files<Stdio>(suite, Library::Tirpc, "xdrstdio", "xdr");
    add_files<Records>(suite, Library::Tirpc, "xdrrec", "xdr");
}

}  // namespace bench
#endif
