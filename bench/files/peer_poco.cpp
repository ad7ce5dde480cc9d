#ifdef KELSTDMT_PEER_POCO
#include <Poco/DirectoryIterator.h>
#include <Poco/File.h>
#include <Poco/FileStream.h>
#include <Poco/Glob.h>
#ifdef KELSTDMT_PEER_POCO_UTIL
#include <Poco/Util/PropertyFileConfiguration.h>
#endif

#include <iterator>

#include "cases.h"
#include "work.h"

namespace bench {
namespace {

std::size_t list(const std::string &folder) {
    std::vector<std::string> names;
    Poco::Glob pattern("*7.txt");
    for (Poco::DirectoryIterator entry(folder), end; entry != end; ++entry)
        if (pattern.match(entry.name())) names.push_back(entry.name());
    return names.size();
}

class Update {
public:
    explicit Update(const std::string &path) : m_file(path, std::ios::in | std::ios::out) {}
    void put(int value) {
        std::uint32_t word = __builtin_bswap32(static_cast<std::uint32_t>(value));
        m_file.seekp(monitor_place);
        m_file.write(reinterpret_cast<const char *>(&word), 4);
        m_file.flush();
    }

private:
    Poco::FileStream m_file;
};

class Follow {
public:
    explicit Follow(std::string path) : m_path(std::move(path)) {}
    long long read_all() {
        Poco::FileInputStream file(m_path);
        std::string bytes(std::istreambuf_iterator<char>(file), {});
        return sum_of_records(bytes.data(), bytes.size());
    }

private:
    std::string m_path;
};

#ifdef KELSTDMT_PEER_POCO_UTIL
using Properties = Poco::Util::PropertyFileConfiguration;

Settings properties() {
    return {[](const std::string &path) {
                Poco::AutoPtr<Properties> file(new Properties);
                for (const auto &[name, value] : config_content())
                    file->setString(name, value);
                file->save(path);
            },
            [](const std::string &path) {
                Poco::AutoPtr<Properties> file(new Properties(path));
                Poco::Util::AbstractConfiguration::Keys keys;
                file->keys(keys);
                return keys.size();
            },
            [](const std::string &path) {
                Poco::AutoPtr<Properties> file(new Properties(path));
                file->setString("window7position", "8");
                file->save(path);
            }};
}
#endif

}  // namespace

void add_poco(Suite &suite) {
    add_tree(
        suite, Library::Poco, "Poco::File",
        [](const std::string &from, const std::string &to) { Poco::File(from).copyTo(to); },
        [](const std::string &folder) { Poco::File(folder).remove(true); });
    add_list(suite, Library::Poco, "Poco::DirectoryIterator", list);
#ifdef KELSTDMT_PEER_POCO_UTIL
    add_config(suite, Library::Poco, "Poco::PropertyFileConfiguration", properties());
#endif
    add_update<Update>(suite, Library::Poco, "Poco::FileStream");
    add_follow<Follow>(suite, Library::Poco, "Poco::FileInputStream");
}

}  // namespace bench
#endif
