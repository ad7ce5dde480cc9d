// Our file streams in the three encodings.
#include <kelstdmt/iolib.h>

#include <memory>

#include "loops.h"

namespace bench {
namespace {

// In the text encoding the writer puts the separators in; the other two need none.
template <ioSerializer *(*Encoding)(), bool Separated>
struct Format {
    using Text = xstring;
    using TextBack = xstring;
    static xstring make(const std::string &text) { return xstring(text.c_str()); }
    static bool same(const xstring &text, const std::string &wanted) {
        return wanted == std::string_view(text);
    }

    class Writer {
    public:
        explicit Writer(const char *path) : m_stream(ioFileStream::Create(path, ioWriteOnly, true)) {
            m_stream->setSerializer(Encoding());
        }
        void put(int value) {
            m_stream->WriteInt(value);
            separate();
        }
        void put(double value) {
            m_stream->WriteReal(value);
            separate();
        }
        void put(const xstring &value) {
            m_stream->WriteString(value);
            separate();
        }
        bool finish() {
            m_stream->Close();
            return !m_stream->getIsBad();
        }

    private:
        void separate() {
            if constexpr (Separated) m_stream->WriteByte('\n');
        }
        std::unique_ptr<ioFileStream> m_stream;
    };

    class Reader {
    public:
        explicit Reader(const char *path) : m_stream(ioFileStream::Open(path, ioReadOnly)) {
            m_stream->setSerializer(Encoding());
        }
        void get(int &value) { value = m_stream->ReadInt(); }
        void get(double &value) { value = m_stream->ReadReal(); }
        void get(xstring &value) { value = m_stream->ReadString(); }

    private:
        std::unique_ptr<ioFileStream> m_stream;
    };
};

}  // namespace

void add_ours_streams(Suite &suite) {
    add_files<Format<&ioSerializer::getAscii, true>>(suite, Library::Ours, "ioFileStream", "text");
    add_files<Format<&ioSerializer::getBinary, false>>(suite, Library::Ours, "ioFileStream", "binary");
    add_files<Format<&ioSerializer::getXDR, false>>(suite, Library::Ours, "ioFileStream", "xdr");
}

}  // namespace bench
