// The C++ standard library's values, strings, counts and containers.
#include <any>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "loops.h"

namespace bench {
namespace {

template <class T>
class List : public std::vector<T> {
public:
    void append(const T &value) { this->push_back(value); }
    const T &at(int index) const { return std::vector<T>::at(static_cast<std::size_t>(index)); }
};

class Table {
public:
    class Keys {
    public:
        explicit Keys(const std::vector<std::string> &texts) : m_texts(texts) {}
        const std::string &operator[](std::size_t i) const { return m_texts[i]; }

    private:
        const std::vector<std::string> &m_texts;
    };

    void set(const std::string &key, int value) { m_table.insert_or_assign(key, value); }
    bool find(const std::string &key, int &value) const {
        auto found = m_table.find(key);
        if (found == m_table.end()) return false;
        value = found->second;
        return true;
    }
    bool remove(const std::string &key) { return m_table.erase(key) != 0; }
    bool empty() const { return m_table.empty(); }

private:
    std::unordered_map<std::string, int> m_table;
};

class Signal {
public:
    void set() {
        std::lock_guard lock(m_mutex);
        m_set = true;
        m_changed.notify_one();
    }
    void wait() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_set; });
        m_set = false;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_set = false;
};

}  // namespace

void add_std(Suite &suite) {
    const auto standard = Library::Std;
    suite.add("any/int", standard, "std::any",
              [](benchmark::State &state) { copy_and_destroy(state, std::any(42)); });
    suite.add("any/real", standard, "std::any",
              [](benchmark::State &state) { copy_and_destroy(state, std::any(42.5)); });
    suite.add("any/string", standard, "std::any",
              [](benchmark::State &state) { copy_and_destroy(state, std::any(text_of(12))); });
    for (const char *name : {"any/object", "any/object-threads"})
        suite.add(name, standard, "std::any", [](benchmark::State &state) {
            copy_and_destroy(state, std::any(std::make_shared<Ballast>()));
        });
    add_strings<std::string>(suite, standard, "std::string", [](const std::string &text) { return text; });
    add_counts(
        suite, standard, "std::shared_ptr", [] { return std::make_shared<Ballast>(); },
        [](const std::shared_ptr<Ballast> &record) {
            std::shared_ptr<Ballast> copy(record);
            benchmark::DoNotOptimize(copy);
        });
    suite.add("sequence/ints", standard, "std::vector", append_and_read_ints<List<int>>);
    suite.add("sequence/strings", standard, "std::vector", [](benchmark::State &state) {
        append_and_read<List<std::string>>(state, different_texts(),
                                           [](const std::string &text) { return text[0]; });
    });
    add_dictionaries<Table>(suite, standard, "std::unordered_map");
    suite.add("wait/wake", standard, "std::condition_variable", wake<Signal>);
}

}  // namespace bench
