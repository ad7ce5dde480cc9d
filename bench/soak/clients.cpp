// The clients: threads that each do one thing after the other, chosen by chance with a seed of its own.
#include <kelstdmt/kel.h>
#include <kelstdmt/netlib.h>
#include <kelstdmt/nmsclib.h>
#include <kelstdmt/proclib.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <memory>
#include <random>
#include <thread>
#include <tuple>
#include <vector>

#include "soak.h"

namespace soak {
namespace {

using Stream = std::unique_ptr<netSocketStream>;
using Process = std::unique_ptr<pcProcess>;
using Clock = std::chrono::steady_clock;

constexpr double patience = 60;  // seconds, on a machine that does other things as well
constexpr double slow = 5;       // seconds that are worth a line, though no failure
constexpr std::size_t most_silent = 20;

class Client {
public:
    Client(Shared &page, unsigned seed, std::string self)
        : m_page(page), m_seed(seed), m_random(seed), m_self(std::move(self)) {}
    void run() {
        // As many as there will be later, so that a short warm-up has seen them too.
        for (std::size_t i = 0; i < most_silent; ++i)
            attempt(&Client::fall_silent);
        while (!m_page.stop) {
            const auto begin = Clock::now();
            attempt(&Client::act);
            const std::chrono::duration<double> taken = Clock::now() - begin;
            if (taken.count() > slow) std::fprintf(stderr, "slow: %s took %.1f s\n", m_doing, taken.count());
        }
    }

private:
    void attempt(void (Client::*action)()) {
        try {
            (this->*action)();
        } catch (...) {
            fail(m_page, std::string(m_doing) + ": " + kel::take_text());
        }
    }

    struct Action {
        int weight;
        const char *name;
        void (Client::*act)();
    };
    void act() {
        static constexpr Action actions[] = {
            {300, "ask", &Client::ask},
            {150, "loop", &Client::ask_loop},
            {60, "job", &Client::job},
            {60, "alive", &Client::ask_whether_alive},
            {150, "records", &Client::records},
            {60, "reset", &Client::reset},
            {20, "silent", &Client::fall_silent},
            {40, "launch", &Client::launch},
            {2, "vanish", &Client::vanish},
        };
        int all = 0;
        for (const Action &action : actions)
            all += action.weight;
        int chosen = below(all);
        for (const Action &action : actions) {
            chosen -= action.weight;
            if (chosen >= 0) continue;
            m_doing = action.name;
            (this->*action.act)();
            return;
        }
    }
    int below(int limit) { return static_cast<int>(m_random() % static_cast<unsigned>(limit)); }
    void check(bool right, const char *what) {
        if (!right) throw std::runtime_error(what);
    }

    static std::unique_ptr<netAddress> address(const char *name) {
        return std::unique_ptr<netAddress>(netAddress::Create(name, "127.0.0.1"));
    }
    Stream connect() {
        Stream stream(netServer::Connect(address(threads_name).get(), patience));
        check(stream != nullptr, "no connection");
        return stream;
    }

    // Requests ------------------------------------------------------------------------------------

    void ask() {
        const Stream stream = connect();
        for (int round = below(5) + 1; round > 0; --round) {
            const int count = below(2'000);
            unsigned sum = 0;
            stream->WriteInt(Sum);
            stream->WriteInt(count);
            for (int i = 0; i < count; ++i) {
                const auto value = static_cast<unsigned>(m_random());
                sum += value;
                stream->WriteInt(static_cast<int>(value));
            }
            stream->Flush();
            check(stream->ReadInt() == static_cast<int>(sum), "another sum");
            count_one(Asked);
        }
    }

    void ask_loop() {
        const Stream stream(netBaseServer::Connect(address(loop_name).get(), patience));
        check(stream != nullptr, "no connection");
        for (int round = below(5) + 1; round > 0; --round) {
            const int count = below(50) + 1, first = below(1'000'000);
            for (int i = 0; i < count; ++i)
                stream->WriteInt(first + i);
            stream->Flush();
            for (int i = 0; i < count; ++i)
                check(stream->ReadInt() == first + i, "another int comes back");
            count_one(Looped);
        }
    }

    // A third of them lose interest.
    void job() {
        const Stream stream = connect();
        const int steps = below(20) + 1, wanted = below(3) ? steps : below(steps);
        stream->WriteInt(Job);
        stream->WriteInt(steps);
        stream->Flush();
        for (int i = 1; i <= wanted; ++i)
            check(stream->ReadInt() == i, "another progress");
        count_one(Jobs);
    }

    void ask_whether_alive() {
        const auto server = address(threads_name);
        check(netServer::IsAlive(server.get(), patience), "not alive");
        check(netServer::GetVersion(server.get(), patience) == "KEL netServer Version 0.99",
              "another version");
        count_one(Alive);
    }

    // Half of the programs are started by the server.
    void launch() {
        if (below(2)) {
            const Stream stream = connect();
            stream->WriteInt(Launch);
            stream->WriteInt(0);
            stream->Flush();
            check(stream->ReadInt() == 0, "another exit code");
        } else {
            const Process process(
                pcProcess::Create("/bin/sleep 100", nullptr, nullptr, nullptr, nullptr, true, false));
            process->Terminate();
            check(std::unique_ptr<pcEvent>(process->ExitEvent())->Wait(patience), "does not end");
            check(process->GetExitCode() == 128 + SIGKILL, "another exit code");
        }
        count_one(Launched);
    }

    // Names ---------------------------------------------------------------------------------------

    void records() {
        const std::unique_ptr<nmsServerProxy> names(nmsServerProxy::ConnectByName("127.0.0.1"));
        const std::string name = "soak " + std::to_string(m_seed) + " " + std::to_string(++m_names);
        nmsRecord record(0);
        record.Add("_ServerName", name.c_str());
        record.Add("Text", std::string(static_cast<std::size_t>(below(200)), 'x').c_str());
        names->Register(&record);
        check(found(*names, record) == 1, "the record is not found");
        check(names->Delete(&record) == 1, "the record is not deleted");
        check(found(*names, record) == 0, "the record is still there");
        count_one(Records);
    }
    static std::size_t found(nmsServerProxy &names, nmsRecord &wanted) {
        const std::unique_ptr<nmsRecordArray> records(names.Query(&wanted));
        std::size_t count = 0;
        for (int i = 0; i < records->getarraysize(); ++i, ++count)
            delete (*records)[i];
        return count;
    }

    // A server that is killed leaves no record.
    void vanish() {
        const std::string name = "brief " + std::to_string(m_seed) + " " + std::to_string(++m_names);
        const std::unique_ptr<ioPipe> pipe(ioPipe::Create());
        const std::string command = "\"" + m_self + "\" --role brief \"" +
                                    std::string(std::getenv("KELSTDMT_SOAK_PAGE")) + "\" \"" + name + "\"";
        const Process process(pcProcess::Create(command.c_str(), nullptr, nullptr,
                                                kel_pipe_access::WriteStream(*pipe), nullptr, false, false));
        while (kel_pipe_access::ReadStream(*pipe)->ReadByte() != '\n') {  // its port, once it serves
        }
        check(netServer::IsAlive(address(name.c_str()).get(), patience), "the brief server is not there");
        process->Terminate();
        check(std::unique_ptr<pcEvent>(process->ExitEvent())->Wait(patience),
              "the brief server does not end");
        const std::unique_ptr<nmsServerProxy> names(nmsServerProxy::ConnectByName("127.0.0.1"));
        nmsRecord wanted(0);
        wanted.Add("_ServerName", name.c_str());
        const auto end = Clock::now() + std::chrono::seconds(30);
        while (found(*names, wanted) != 0) {
            check(Clock::now() < end, "the record of a process that ended is still there");
            std::this_thread::yield();
        }
        count_one(Vanished);
    }

    // Bad manners ---------------------------------------------------------------------------------

    // On the port of one of the servers, after a few bytes of something.
    int connect_rudely() {
        const auto server = address(below(2) ? threads_name : loop_name);
        Stream(netBaseServer::Connect(server.get(), patience));  // stores the port in the address
        const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in place = {};
        place.sin_family = AF_INET;
        place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        place.sin_port = htons(static_cast<in_port_t>(below(4) ? server->getPortN() : names_port()));
        if (descriptor < 0 || ::connect(descriptor, reinterpret_cast<sockaddr *>(&place), sizeof place) != 0)
            throw std::runtime_error("no plain connection");
        // A handshake, a request of the name server that claims much, or noise; cut off anywhere.
        static constexpr char beginnings[][12] = {{0, 0, 0, 0, 2, 0, 0, 0, 20},
                                                  {0, 0, 0, 100, 5, 0, 0, 0, 0, 127, 0, 0},
                                                  {0, 0, 0, 100, 3},
                                                  {9, 9, 9}};
        std::ignore =
            ::send(descriptor, beginnings[below(4)], static_cast<std::size_t>(below(13)), MSG_NOSIGNAL);
        return descriptor;
    }
    static int names_port() { return std::atoi(std::getenv("ORVNMSPORT")); }

    void reset() {
        const int descriptor = connect_rudely();
        const linger at_once = {1, 0};
        ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        ::close(descriptor);
        count_one(Resets);
    }

    void fall_silent() {
        m_silent.emplace_back(connect_rudely());
        if (m_silent.size() > most_silent) m_silent.pop_front();
        count_one(Silent);
    }

    void count_one(Counter counter) { count(m_page, counter); }

    class Descriptor {
    public:
        explicit Descriptor(int number) : m_number(number) {}
        ~Descriptor() { ::close(m_number); }
        Descriptor(const Descriptor &) = delete;
        Descriptor &operator=(const Descriptor &) = delete;

    private:
        int m_number;
    };

    Shared &m_page;
    unsigned m_seed;
    std::mt19937 m_random;
    std::string m_self;
    const char *m_doing = "silent";
    long m_names = 0;
    std::deque<Descriptor> m_silent;
};

}  // namespace

void be_clients(Shared &page, int threads, const std::string &self) {
    announce(0);
    std::vector<std::thread> running;
    for (int i = 1; i <= threads; ++i)
        running.emplace_back([&page, &self, i] { Client(page, static_cast<unsigned>(i), self).run(); });
    for (std::thread &thread : running)
        thread.join();
}

}  // namespace soak
