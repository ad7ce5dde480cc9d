// Qt 5 Core's streams over a QFile.
#ifdef KELSTDMT_PEER_QT
#include <QByteArray>
#include <QDataStream>
#include <QFile>
#include <QString>
#include <QTextStream>

#include "loops.h"

namespace bench {
namespace {

struct TextFormat {
    using Text = QString;
    using TextBack = QString;
    static QString make(const std::string &text) { return QString::fromStdString(text); }
    static bool same(const QString &text, const std::string &wanted) {
        return text == QLatin1String(wanted.data(), static_cast<int>(wanted.size()));
    }

    class Writer {
    public:
        explicit Writer(const char *path) : m_file(QString::fromLocal8Bit(path)) {
            m_file.open(QIODevice::WriteOnly | QIODevice::Truncate);
            m_stream.setDevice(&m_file);
            m_stream.setCodec("ISO-8859-1");
        }
        template <class Value>
        void put(const Value &value) {
            m_stream << value << '\n';
        }
        bool finish() {
            m_stream.flush();
            m_file.close();
            return m_stream.status() == QTextStream::Ok;
        }

    private:
        QFile m_file;
        QTextStream m_stream;
    };

    class Reader {
    public:
        explicit Reader(const char *path) : m_file(QString::fromLocal8Bit(path)) {
            m_file.open(QIODevice::ReadOnly);
            m_stream.setDevice(&m_file);
            m_stream.setCodec("ISO-8859-1");
        }
        template <class Value>
        void get(Value &value) {
            m_stream >> value;
        }
        void get(QString &value) { m_stream.readLineInto(&value); }

    private:
        QFile m_file;
        QTextStream m_stream;
    };
};

template <QDataStream::ByteOrder Order>
struct BinaryFormat {
    using Text = QByteArray;
    using TextBack = QByteArray;
    static QByteArray make(const std::string &text) { return QByteArray::fromStdString(text); }
    static bool same(const QByteArray &text, const std::string &wanted) { return text == wanted.c_str(); }

    class Writer {
    public:
        explicit Writer(const char *path) : m_file(QString::fromLocal8Bit(path)) {
            m_file.open(QIODevice::WriteOnly | QIODevice::Truncate);
            m_stream.setDevice(&m_file);
            m_stream.setByteOrder(Order);
        }
        template <class Value>
        void put(const Value &value) {
            m_stream << value;
        }
        bool finish() {
            m_file.close();
            return m_stream.status() == QDataStream::Ok;
        }

    private:
        QFile m_file;
        QDataStream m_stream;
    };

    class Reader {
    public:
        explicit Reader(const char *path) : m_file(QString::fromLocal8Bit(path)) {
            m_file.open(QIODevice::ReadOnly);
            m_stream.setDevice(&m_file);
            m_stream.setByteOrder(Order);
        }
        template <class Value>
        void get(Value &value) {
            m_stream >> value;
        }

    private:
        QFile m_file;
        QDataStream m_stream;
    };
};

}  // namespace

void add_qt_streams(Suite &suite) {
    add_files<TextFormat>(suite, Library::Qt, "QTextStream", "text");
    add_files<BinaryFormat<QDataStream::LittleEndian>>(suite, Library::Qt, "QDataStream", "binary");
    add_files<BinaryFormat<QDataStream::BigEndian>>(suite, Library::Qt, "QDataStream", "xdr");
}

}  // namespace bench
#endif
