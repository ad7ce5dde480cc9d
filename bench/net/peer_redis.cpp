// Redis as a store of names: SET and GET over TCP, each on a connection of its own, as the name service is
// asked, and all of them on one.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "work.h"

namespace bench {
namespace {

// Its folder, and a port that was free a moment ago.
class Redis {
public:
    explicit Redis(bool journal) : m_folder(make_folder()) {
        close(listen_plainly(m_port));
        std::string words =
            "redis-server --save '' --loglevel warning --logfile redis.log --bind 127.0.0.1 --dir " +
            m_folder.string() + " --port " + std::to_string(m_port);
        if (journal) words += " --appendonly yes --appendfsync everysec";
        m_process = std::make_unique<OtherProcess>(words);
        const bool there = await([&] {
            try {
                close(connect_plainly(m_port));
                return true;
            } catch (const Gone &) {
                return !m_process->is_running();
            }
        });
        if (!there || !m_process->is_running()) throw std::runtime_error("cannot: not installed");
    }
    ~Redis() {
        m_process.reset();
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }
    int port() const { return m_port; }

private:
    static std::filesystem::path make_folder() {
        std::string pattern = std::filesystem::temp_directory_path() / "kelstdmt-bench-XXXXXX";
        if (!mkdtemp(pattern.data())) throw std::runtime_error("no folder for Redis");
        return pattern;
    }
    std::filesystem::path m_folder;
    int m_port = 0;
    std::unique_ptr<OtherProcess> m_process;
};

class RedisNames : public Names {
public:
    RedisNames(bool journal, bool keep) : m_redis(journal) {
        if (keep) m_kept = std::make_unique<Connection>(m_redis.port());
    }
    void put(const std::string &name, int port) override {
        const std::string answer = ask({"SET", name, std::to_string(port)});
        if (answer != "+OK") throw std::runtime_error(answer);
    }
    int find(const std::string &name) override { return std::atoi(ask({"GET", name}).c_str()); }

private:
    struct Connection {
        int descriptor;
        explicit Connection(int port) : descriptor(connect_plainly(port)) {}
        ~Connection() { close(descriptor); }
        Connection(const Connection &) = delete;
        Connection &operator=(const Connection &) = delete;
    };
    std::string ask(std::initializer_list<std::string> words) {
        if (m_kept) return ask_on(*m_kept, words);
        Connection connection(m_redis.port());
        return ask_on(connection, words);
    }
    // Answers are a line, or a line with a size and then the text.
    static std::string ask_on(const Connection &connection, std::initializer_list<std::string> words) {
        std::string request = "*" + std::to_string(words.size()) + "\r\n";
        for (const std::string &word : words)
            request += "$" + std::to_string(word.size()) + "\r\n" + word + "\r\n";
        if (!write_plainly(connection.descriptor, request.data(), request.size())) throw Gone();
        std::string answer;
        auto wanted = std::string::npos;
        while (answer.size() < wanted) {
            char bytes[256];
            const ssize_t came = read(connection.descriptor, bytes, sizeof bytes);
            if (came <= 0) throw Gone();
            answer.append(bytes, static_cast<std::size_t>(came));
            const auto line = answer.find("\r\n");
            if (line == std::string::npos || wanted != std::string::npos) continue;
            wanted = line + 2;
            if (answer[0] == '$') wanted += static_cast<std::size_t>(std::atoi(answer.c_str() + 1)) + 2;
        }
        answer.resize(answer.size() - 2);
        return answer[0] == '$' ? answer.substr(answer.find('\n') + 1) : answer;
    }

    Redis m_redis;
    std::unique_ptr<Connection> m_kept;
};

}  // namespace

void add_redis(Suite &suite) {
    for (bool journal : {false, true}) {
        const char *name = journal ? "journal" : "names";
        add_names(suite, name, Library::Redis, "Redis, a connection each",
                  [journal] { return std::make_unique<RedisNames>(journal, false); });
        add_names(suite, name, Library::Floor, "Redis, one connection",
                  [journal] { return std::make_unique<RedisNames>(journal, true); });
    }
}

}  // namespace bench
