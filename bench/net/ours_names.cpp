// Ours: the name server in a process of its own, asked through the plain functions, a connection for each
// request.
#include <kelstdmt/nameserver.h>
#include <kelstdmt/vumrt_names.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "work.h"

namespace bench {
namespace {

struct Free {
    void operator()(nmsServ *server) const { nmsServDelete(server); }
    void operator()(nmsRec *record) const { nmsRecDelete(record); }
    void operator()(nmsErr *error) const { nmsErrDelete(error); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;

class OurNames : public Names {
public:
    explicit OurNames(Serve serve) : m_process(serve) {
        setenv("ORVNMSPORT", std::to_string(m_process.port()).c_str(), 1);
        m_server.reset(nmsServConnectLocal());
    }
    void put(const std::string &name, int port) override {
        const Owned<nmsRec> record = record_of(name, 1);
        nmsRecAdd(record.get(), "_PortNumber", std::to_string(port).c_str());
        check(nmsServRegister(m_server.get(), record.get()));
    }
    int find(const std::string &name) override {
        const Owned<nmsRec> wanted = record_of(name, 0);
        nmsRec **found = nullptr;
        int count = 0;
        check(nmsServQuery(m_server.get(), wanted.get(), &found, &count));
        if (count == 0) return 0;
        const char *text = nmsRecGetFieldValueByName(found[0], "_PortNumber");
        const int port = text ? std::atoi(text) : 0;
        nmsRecArrayDelete(found, count);
        return port;
    }

private:
    static Owned<nmsRec> record_of(const std::string &name, int associated) {
        Owned<nmsRec> record(nmsRecCreate(associated));
        nmsRecAdd(record.get(), "_ServerName", name.c_str());
        return record;
    }
    static void check(nmsErr *owned) {
        const Owned<nmsErr> error(owned);
        if (error)
            throw std::runtime_error("name server: status " + std::to_string(nmsErrGetCode(error.get())));
    }

    ServerProcess m_process;
    Owned<nmsServ> m_server;
};

void run_name_server(const std::string &journal) {
    kel::name_server_options options;
    options.journal = journal;
    std::string error;
    const std::unique_ptr<kel::name_server> server = kel::name_server::create(options, error);
    if (!server) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return;
    }
    announce(server->port());
    server->run(nullptr);
}

// The folder of the journal is made here and goes with the object, because the server is killed.
class JournalNames : public OurNames {
public:
    JournalNames() : OurNames(prepare()) {}
    ~JournalNames() override {
        std::error_code ignored;
        std::filesystem::remove_all(folder(), ignored);
    }

private:
    static std::string folder() {
        const char *name = std::getenv("KELSTDMT_BENCH_JOURNAL");
        return name ? name : "";
    }
    static Serve prepare() {
        std::string pattern = std::filesystem::temp_directory_path() / "kelstdmt-bench-XXXXXX";
        if (!mkdtemp(pattern.data())) throw std::runtime_error("no folder for the journal");
        setenv("KELSTDMT_BENCH_JOURNAL", pattern.c_str(), 1);
        return ours_names_journal;
    }
};

}  // namespace

void ours_names(Work) {
    run_name_server("");
}

void ours_names_journal(Work) {
    const char *folder = std::getenv("KELSTDMT_BENCH_JOURNAL");
    run_name_server(std::string(folder ? folder : ".") + "/journal");
}

void add_ours_names(Suite &suite) {
    add_names(suite, "names", Library::Ours, "name server",
              [] { return std::make_unique<OurNames>(ours_names); });
    add_names(suite, "journal", Library::Ours, "name server",
              [] { return std::make_unique<JournalNames>(); });
}

}  // namespace bench
