// The clients. All that they know of a server is its name, and the host when that is another one.
#include <sstream>

#include "request.h"

namespace {

constexpr double patience = 10;  // seconds until a server has let us in
constexpr int job = 3000000, endless = 2147483647;

class Client {
public:
    explicit Client(const std::string &server) : m_server(server) {
        const std::size_t at = server.rfind('@');
        const std::string host = at == std::string::npos ? "" : server.substr(at + 1);
        m_address.reset(netAddress::Create(server.substr(0, at).c_str(),
                                           at == std::string::npos ? xstrNullStr : host.c_str()));
    }

    // The first connection looks the port up, which the address then keeps.
    std::unique_ptr<netSocketStream> Connect(Wish wish) {
        const bool new_here = m_address->getPortN() == 0;
        std::unique_ptr<netSocketStream> stream;
        Request([&] { stream.reset(netServer::Connect(m_address.get(), patience)); });
        if (new_here) Found();
        if (!stream) throw std::runtime_error(m_server + " does not answer");
        stream->WriteInt(wish);
        return stream;
    }

    void Calculate(double a, const std::string &sign, double b) {
        const std::unique_ptr<netSocketStream> stream = Connect(calculate);
        stream->WriteString(sign.c_str());
        stream->WriteReal(a);
        stream->WriteReal(b);
        stream->Flush();
        const std::string failure(stream->ReadString());
        std::ostringstream line;
        line << a << ' ' << sign << ' ' << b;
        if (failure.empty())
            line << " = " << stream->ReadReal();
        else
            line << " fails: " << failure;
        Say(line.str());
    }

    bool IsAlive() {
        bool alive = false;
        Request([&] { alive = netServer::IsAlive(m_address.get(), patience) != 0; });
        return alive;
    }
    std::string Version() {
        std::string version;
        Request([&] { version = std::string(netServer::GetVersion(m_address.get(), patience)); });
        return version;
    }
    void Shutdown() {
        Request([&] { netServer::Shutdown(m_address.get(), patience); });
    }

    void Found() const {
        Say("the name server knows it: " + m_server + " is on port " + std::to_string(m_address->getPortN()));
    }

private:
    // A refusal is told by an exception like all else, but is no surprise here.
    template <class Work>
    void Request(Work work) {
        try {
            work();
        } catch (xthrowable *thrown) {
            kel::caught error(thrown);
            const netXException *failure = error.as<netXException>();
            if (!failure || failure->getError() != netConnectionRefused) error.rethrow();
            throw Refused(m_server + " refuses: " + std::string(failure->getMsg()));
        }
    }

    std::string m_server;
    std::unique_ptr<netAddress> m_address;
};

// Reads one report; false when it was the last.
bool ReadReport(netSocketStream &stream, int &percent, int &primes) {
    percent = stream.ReadInt();
    primes = stream.ReadInt();
    return percent != 100 && percent != stopped;
}

}  // namespace

void Calculate(const std::string &server, const std::string &sum) {
    std::istringstream words(sum);
    double a = 0, b = 0;
    std::string sign;
    if (!(words >> a >> sign >> b)) throw std::runtime_error("no sum such as \"17 + 25\": " + sum);
    Client(server).Calculate(a, sign, b);
}

void Ask(const std::string &server) {
    Client client(server);
    client.Calculate(17, "+", 25);
    client.Calculate(1, "/", 0);

    const std::unique_ptr<netSocketStream> stream = client.Connect(count_primes);
    stream->WriteInt(job);
    stream->Flush();
    int percent = 0, primes = 0;
    for (bool more = true; more;) {
        more = ReadReport(*stream, percent, primes);
        if (percent == stopped) throw std::runtime_error("the server stopped counting");
        Say("primes: " + std::to_string(percent) + "%, " + std::to_string(primes) + " so far");
        if (percent == 50) client.Calculate(6, "*", 7);  // meanwhile
    }
}

void End(const std::string &server) {
    Client client(server);
    Say(std::string("alive? ") + (client.IsAlive() ? "yes" : "no"));
    Say("version? " + client.Version());

    const std::unique_ptr<netSocketStream> stream = client.Connect(count_primes);
    stream->WriteInt(endless);
    stream->Flush();
    Say("a count that would take very long is under way; the server is told to shut down");
    client.Shutdown();
    int percent = 0, primes = 0;
    while (ReadReport(*stream, percent, primes)) {
    }
    Say(percent == stopped ? "the count was stopped at " + std::to_string(primes) + " primes"
                           : "the count was not stopped");
}
