// Qt 5 Core: values, strings, counts, containers, printing, properties and waits.
#ifdef KELSTDMT_PEER_QT
#include <sys/eventfd.h>
#include <unistd.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QDebug>
#include <QExplicitlySharedDataPointer>
#include <QHash>
#include <QMetaProperty>
#include <QMutex>
#include <QSharedData>
#include <QSharedPointer>
#include <QSocketNotifier>
#include <QVariant>
#include <QVector>
#include <QWaitCondition>
#include <cstdio>
#include <memory>

#include "loops.h"
#ifdef KELSTDMT_PEER_QT_MOC
#include "peer_qt_record.h"
#endif

namespace bench {

struct QtData : QSharedData {
    Ballast ballast;
};
using QtDataPointer = QExplicitlySharedDataPointer<QtData>;

}  // namespace bench

Q_DECLARE_METATYPE(bench::QtDataPointer)

namespace bench {
namespace {

QByteArray bytes_of(const std::string &text) {
    return QByteArray(text.data(), static_cast<int>(text.size()));
}

// operator+ of a Qt that is built with fast concatenation gives a builder; Text(sum) builds.
struct Text : QByteArray {
    explicit Text(const QByteArray &text) : QByteArray(text) {}
    friend QByteArray operator+(const Text &a, const Text &b) {
        return static_cast<const QByteArray &>(a) + static_cast<const QByteArray &>(b);
    }
};

template <class T>
class List : public QVector<T> {
public:
    void append(const T &value) { QVector<T>::append(value); }
    const T *begin() const { return this->constData(); }
    const T *end() const { return this->constData() + this->size(); }
};

class Table {
public:
    class Keys {
    public:
        explicit Keys(const std::vector<std::string> &texts) {
            m_keys.reserve(texts.size());
            for (const std::string &text : texts)
                m_keys.push_back(bytes_of(text));
        }
        const QByteArray &operator[](std::size_t i) const { return m_keys[i]; }

    private:
        std::vector<QByteArray> m_keys;
    };

    void set(const QByteArray &key, int value) { m_table.insert(key, value); }
    bool find(const QByteArray &key, int &value) const {
        auto found = m_table.constFind(key);
        if (found == m_table.constEnd()) return false;
        value = *found;
        return true;
    }
    bool remove(const QByteArray &key) { return m_table.remove(key) != 0; }
    bool empty() const { return m_table.isEmpty(); }

private:
    QHash<QByteArray, int> m_table;
};

QVariant make_tree() {
    QVariantList made;
    for (int g = 0; g < tree::groups; ++g) {
        QVariantList items;
        for (int i = 0; i < tree::items; ++i) {
            QVariantMap item;
            for (int f = 0; f < tree::fields; ++f) {
                QString name = QString::fromLatin1(tree::names[f]);
                if (f < 4)
                    item.insert(name, tree::integer(g, i, f));
                else if (f < 7)
                    item.insert(name, tree::real(g, i, f));
                else
                    item.insert(name, QString::fromStdString(tree::text(g, i, f)));
            }
            items.append(item);
        }
        made.append(QVariant(items));
    }
    return made;
}

class Signal {
public:
    void set() {
        QMutexLocker lock(&m_mutex);
        m_set = true;
        m_changed.wakeOne();
    }
    void wait() {
        QMutexLocker lock(&m_mutex);
        while (!m_set)
            m_changed.wait(&m_mutex);
        m_set = false;
    }

private:
    QMutex m_mutex;
    QWaitCondition m_changed;
    bool m_set = false;
};

// Notifiers of one thread's event loop.
class NotifierSet {
public:
    NotifierSet() : m_application(m_count, m_arguments), m_descriptors(wait_count) {
        for (std::size_t i = 0; i < m_descriptors.size(); ++i) {
            int descriptor = m_descriptors[i] = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
            auto &notifier = m_notifiers.emplace_back(
                std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read));
            QObject::connect(notifier.get(), &QSocketNotifier::activated, [this, i, descriptor] {
                eventfd_t value;
                if (eventfd_read(descriptor, &value) != 0) std::perror("eventfd_read");
                m_reported = static_cast<int>(i);
            });
        }
    }
    ~NotifierSet() {
        m_notifiers.clear();
        for (int descriptor : m_descriptors)
            close(descriptor);
    }
    NotifierSet(const NotifierSet &) = delete;
    NotifierSet &operator=(const NotifierSet &) = delete;

    void set(int index) {
        if (eventfd_write(m_descriptors[static_cast<std::size_t>(index)], 1) != 0)
            std::perror("eventfd_write");
    }
    int wait() {
        m_reported = -1;
        while (m_reported < 0)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        return m_reported;
    }

private:
    int m_count = 1;
    char m_name[11] = "core_bench";
    char *m_arguments[2] = {m_name, nullptr};
    QCoreApplication m_application;
    std::vector<int> m_descriptors;
    std::vector<std::unique_ptr<QSocketNotifier>> m_notifiers;
    int m_reported = -1;
};

#ifdef KELSTDMT_PEER_QT_MOC
std::string show(const QVariant &value) {
    if (value.userType() != QMetaType::Double) return value.toByteArray().toStdString();
    char text[40];
    std::snprintf(text, sizeof text, "%g", value.toDouble());
    return text;
}

void add_properties(Suite &suite) {
    suite.add("field/index", Library::Qt, "QMetaProperty", [](benchmark::State &state) {
        QtRecord record;
        const QMetaObject *type = record.metaObject();
        int first = type->propertyOffset();
        read_fields(
            state, [&](int index) { return type->property(first + index).read(&record); }, show);
    });
    suite.add("field/name", Library::Qt, "QObject::property", [](benchmark::State &state) {
        QtRecord record;
        read_fields(
            state, [&](int index) { return record.property(field_names[index]); }, show);
    });
}
#endif

}  // namespace

void add_qt(Suite &suite) {
    const auto qt = Library::Qt;
    suite.add("any/int", qt, "QVariant",
              [](benchmark::State &state) { copy_and_destroy(state, QVariant(42)); });
    suite.add("any/real", qt, "QVariant",
              [](benchmark::State &state) { copy_and_destroy(state, QVariant(42.5)); });
    suite.add("any/string", qt, "QVariant",
              [](benchmark::State &state) { copy_and_destroy(state, QVariant(bytes_of(text_of(12)))); });
    for (const char *name : {"any/object", "any/object-threads"})
        suite.add(name, qt, "QVariant", [](benchmark::State &state) {
            copy_and_destroy(state, QVariant::fromValue(QtDataPointer(new QtData)));
        });
    add_strings<Text>(suite, qt, "QByteArray", [](const std::string &text) { return Text(bytes_of(text)); });
    add_counts(
        suite, qt, "QExplicitlySharedDataPointer", [] { return QtDataPointer(new QtData); },
        [](const QtDataPointer &record) {
            QtDataPointer copy(record);
            benchmark::DoNotOptimize(copy);
        });
    suite.add("sequence/ints", qt, "QVector", append_and_read_ints<List<int>>);
    suite.add("sequence/strings", qt, "QVector", [](benchmark::State &state) {
        std::vector<QByteArray> values;
        for (const std::string &text : different_texts())
            values.push_back(bytes_of(text));
        append_and_read<List<QByteArray>>(state, values, [](const QByteArray &text) { return text.at(0); });
    });
    add_dictionaries<Table>(suite, qt, "QHash");
    suite.add("print/tree", qt, "QDebug", [](benchmark::State &state) {
        QVariant value = make_tree();
        print_tree(
            state,
            [&] {
                QString text;
                QDebug(&text) << value;
                return text;
            },
            [](const QString &text) { return text.toStdString(); });
    });
    suite.add("wait/1000", qt, "QSocketNotifier", wait_for_one<NotifierSet>);
    suite.add("wait/wake", qt, "QWaitCondition", wake<Signal>);
#ifdef KELSTDMT_PEER_QT_MOC
    add_properties(suite);
#endif
}

}  // namespace bench
#endif
