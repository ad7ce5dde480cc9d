#include <kelstdmt/kelstdmt.h>

#include <cstdlib>

#include "cases.h"
#include "work.h"

namespace bench {
namespace {

class Registry : public Store {
public:
    explicit Registry(const std::string &place) {
        setenv("KELSTDMT_REGISTRY", place.c_str(), 1);
        std::unique_ptr<regRegistry> user(regRegistry::User());
        m_key.reset(user->CreateSubkey("Software\\Bench"));
    }
    void set(const std::string &name, const std::string &value) override {
        m_key->SetValue(name.c_str(), value.c_str());
    }
    std::string get(const std::string &name) override {
        return std::string(std::string_view(m_key->GetStringValue(name.c_str())));
    }

private:
    std::unique_ptr<regKey> m_key;
};

class Update {
public:
    explicit Update(const std::string &path)
        : m_file(monFile::Open(path.c_str())), m_parameter(m_file->Int("count")) {}
    void put(int value) { m_parameter->setValue(value); }

private:
    std::unique_ptr<monFile> m_file;
    monIntParam *m_parameter;
};

class Follow {
public:
    explicit Follow(const std::string &path) : m_file(monFile::OpenReadOnly(path.c_str())) {}
    long long read_all() {
        m_file->Refresh();
        long long sum = 0;
        for (const xany &value : m_file->Values())
            sum += static_cast<int>(value);
        return sum;
    }

private:
    std::unique_ptr<monFile> m_file;
};

Settings config_file() {
    return {[](const std::string &path) {
                ovkConfigFile file;
                file.Open(path.c_str(), ovkConfigFile::ReadWrite);
                for (const auto &[name, value] : config_content())
                    file.SetValue(name.c_str(), value.c_str());
            },
            [](const std::string &path) -> std::size_t {
                ovkConfigFile file;
                file.Open(path.c_str(), ovkConfigFile::ReadOnly);
                return file.GetSize();
            },
            [](const std::string &path) {
                ovkConfigFile file;
                file.Open(path.c_str(), ovkConfigFile::ReadWrite);
                file.SetValue("window7position", "8");
            }};
}

}  // namespace

void add_ours(Suite &suite) {
    add_tree(
        suite, Library::Ours, "fsCopy, fsRemove",
        [](const std::string &from, const std::string &to) {
            fsCopy(from.c_str(), to.c_str(), fsForceNew, fsExpand, fsSimple);
        },
        [](const std::string &folder) { fsRemove(folder.c_str(), fsRecursive); });
    add_list(suite, Library::Ours, "fsListDirectory", [](const std::string &folder) {
        return static_cast<std::size_t>(fsListDirectory(folder.c_str(), "*7.txt", strShell)->getarraysize());
    });
    add_sum(suite, Library::Ours, "fsCalculateCheckSum", [](const std::string &path) {
        return static_cast<std::uint32_t>(fsCalculateCheckSum(path.c_str()));
    });
    add_config(suite, Library::Ours, "ovkConfigFile", config_file());
    add_registry<Registry>(suite, Library::Ours, "regKey");
    add_update<Update>(suite, Library::Ours, "monIntParam");
    add_follow<Follow>(suite, Library::Ours, "monFile");
}

}  // namespace bench
