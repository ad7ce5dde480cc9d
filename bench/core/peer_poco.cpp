// POCO Foundation.
#ifdef KELSTDMT_PEER_POCO
#include <Poco/AutoPtr.h>
#include <Poco/BinaryReader.h>
#include <Poco/BinaryWriter.h>
#include <Poco/Dynamic/Struct.h>
#include <Poco/Dynamic/Var.h>
#include <Poco/Event.h>
#include <Poco/FileStream.h>
#include <Poco/RefCountedObject.h>

#include <cstdio>

#include "loops.h"

namespace bench {
namespace {

using Poco::Dynamic::Var;

class Record : public Poco::RefCountedObject {
public:
    Ballast ballast;
};
using RecordPtr = Poco::AutoPtr<Record>;

Poco::DynamicStruct make_record() {
    Poco::DynamicStruct record;
    for (int i = 0; i < field_count; ++i) {
        if (i < 8)
            record.insert(field_names[i], i);
        else if (i < 14)
            record.insert(field_names[i], i + 0.5);
        else
            record.insert(field_names[i], std::string(field_names[i]));
    }
    return record;
}

Var make_tree() {
    Poco::Dynamic::Array made;
    for (int g = 0; g < tree::groups; ++g) {
        Poco::Dynamic::Array items;
        for (int i = 0; i < tree::items; ++i) {
            Poco::DynamicStruct item;
            for (int f = 0; f < tree::fields; ++f) {
                if (f < 4)
                    item.insert(tree::names[f], tree::integer(g, i, f));
                else if (f < 7)
                    item.insert(tree::names[f], tree::real(g, i, f));
                else
                    item.insert(tree::names[f], tree::text(g, i, f));
            }
            items.emplace_back(item);
        }
        made.emplace_back(items);
    }
    return Var(made);
}

struct Strings {
    using Text = std::string;
    using TextBack = std::string;
    static const std::string &make(const std::string &text) { return text; }
    static bool same(const std::string &text, const std::string &wanted) { return text == wanted; }
};

struct TextFormat : Strings {
    class Writer {
    public:
        explicit Writer(const char *path) : m_file(path, std::ios::out | std::ios::trunc) {}
        template <class Value>
        void put(const Value &value) {
            m_file << value << '\n';
        }
        bool finish() {
            m_file.close();
            return m_file.good();
        }

    private:
        Poco::FileOutputStream m_file;
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
        Poco::FileInputStream m_file;
    };
};

template <Poco::BinaryWriter::StreamByteOrder Out, Poco::BinaryReader::StreamByteOrder In>
struct BinaryFormat : Strings {
    class Writer {
    public:
        explicit Writer(const char *path)
            : m_file(path, std::ios::out | std::ios::trunc), m_writer(m_file, Out) {}
        template <class Value>
        void put(const Value &value) {
            m_writer << value;
        }
        bool finish() {
            m_writer.flush();
            m_file.close();
            return m_file.good();
        }

    private:
        Poco::FileOutputStream m_file;
        Poco::BinaryWriter m_writer;
    };

    class Reader {
    public:
        explicit Reader(const char *path) : m_file(path), m_reader(m_file, In) {}
        template <class Value>
        void get(Value &value) {
            m_reader >> value;
        }

    private:
        Poco::FileInputStream m_file;
        Poco::BinaryReader m_reader;
    };
};

class Signal {
public:
    void set() { m_event.set(); }
    void wait() { m_event.wait(); }

private:
    Poco::Event m_event;  // a wait resets it
};

}  // namespace

void add_poco(Suite &suite) {
    const auto poco = Library::Poco;
    suite.add("any/int", poco, "Poco::Dynamic::Var",
              [](benchmark::State &state) { copy_and_destroy(state, Var(42)); });
    suite.add("any/real", poco, "Poco::Dynamic::Var",
              [](benchmark::State &state) { copy_and_destroy(state, Var(42.5)); });
    suite.add("any/string", poco, "Poco::Dynamic::Var",
              [](benchmark::State &state) { copy_and_destroy(state, Var(text_of(12))); });
    for (const char *name : {"any/object", "any/object-threads"})
        suite.add(name, poco, "Poco::Dynamic::Var",
                  [](benchmark::State &state) { copy_and_destroy(state, Var(RecordPtr(new Record))); });
    add_counts(
        suite, poco, "Poco::AutoPtr", [] { return RecordPtr(new Record); },
        [](const RecordPtr &record) {
            RecordPtr copy(record);
            benchmark::DoNotOptimize(copy);
        });
    suite.add("field/name", poco, "Poco::DynamicStruct", [](benchmark::State &state) {
        Poco::DynamicStruct record = make_record();
        read_fields(
            state, [&](int index) { return Var(record[field_names[index]]); },
            [](const Var &value) {
                if (!value.isNumeric() || value.isInteger()) return value.convert<std::string>();
                char text[40];
                std::snprintf(text, sizeof text, "%g", value.convert<double>());
                return std::string(text);
            });
    });
    add_files<TextFormat>(suite, poco, "Poco::FileStream", "text");
    add_files<BinaryFormat<Poco::BinaryWriter::LITTLE_ENDIAN_BYTE_ORDER,
                           Poco::BinaryReader::LITTLE_ENDIAN_BYTE_ORDER>>(suite, poco, "Poco::BinaryWriter",
                                                                          "binary");
    add_files<BinaryFormat<Poco::BinaryWriter::NETWORK_BYTE_ORDER, Poco::BinaryReader::NETWORK_BYTE_ORDER>>(
        suite, poco, "Poco::BinaryWriter", "xdr");
    suite.add("print/tree", poco, "Poco::Dynamic::Var", [](benchmark::State &state) {
        Var value = make_tree();
        print_tree(
            state, [&] { return value.toString(); }, [](const std::string &text) { return text; });
    });
    suite.add("wait/wake", poco, "Poco::Event", wake<Signal>);
}

}  // namespace bench
#endif
