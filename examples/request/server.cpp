// The server. Sums are answered in the loop's thread; a count of primes, which takes long, on a thread of its
// own, so that it holds nobody up.
#include <sstream>

#include "request.h"

namespace {

constexpr double patience = 5;  // seconds for a client to say what it wants
constexpr int steps = 10;       // reports of a count

std::string Sum(double a, const std::string &sign, double b) {
    std::ostringstream text;
    text << a << ' ' << sign << ' ' << b;
    return text.str();
}

// Empty, or why there is no result.
std::string Compute(double a, const std::string &sign, double b, double &result) {
    if (sign == "/" && b == 0) return "division by zero";
    if (sign == "+")
        result = a + b;
    else if (sign == "-")
        result = a - b;
    else if (sign == "*")
        result = a * b;
    else if (sign == "/")
        result = a / b;
    else
        return "there is no sign " + sign;
    return "";
}

bool IsPrime(int number) {
    for (int divisor = 2; divisor <= number / divisor; ++divisor)
        if (number % divisor == 0) return false;
    return number >= 2;
}

class Requests : public netBaseServer_OnRequest_cb {
public:
    netServerLoopAction OnRequest(netBaseServer *, netSocketStream *taken) override {
        std::unique_ptr<netSocketStream> stream(taken);
        try {
            const std::unique_ptr<ioEvent> input(stream->InputEvent());
            if (!input->Wait(patience)) throw std::runtime_error("it says nothing");
            if (stream->ReadInt() == count_primes) {
                static_cast<void>(stream.release());  // the thread's from here on
                return netSpawnAsyncServer;
            }
            Answer(*stream);
        } catch (...) {
            Say("a client is dropped: " + kel::take_text());
        }
        return netServerContinue;
    }

private:
    static void Answer(netSocketStream &stream) {
        const std::string sign(stream.ReadString());
        const double a = stream.ReadReal(), b = stream.ReadReal();
        double result = 0;
        Say(std::string(stream.getPeer()) + " asks for " + Sum(a, sign, b));
        stream.WriteString(Compute(a, sign, b, result).c_str());
        stream.WriteReal(result);
        stream.Close();  // flushes
    }
};

class LongRequests : public netBaseServer_OnAsyncRequest_cb {
public:
    netServerLoopAction OnAsyncRequest(netBaseServer *, netSocketStream *taken, evtEvent *stop) override {
        const std::unique_ptr<netSocketStream> stream(taken);
        try {
            const int limit = stream->ReadInt();
            const std::string job = "the count of primes below " + std::to_string(limit);
            Say(std::string(stream->getPeer()) + " asks for " + job + ", on a thread of its own");
            Say(job + (Count(*stream, limit, stop) ? " is done" : " is stopped: the server goes down"));
        } catch (...) {
            Say("a count has ended: " + kel::take_text());
        }
        return netServerContinue;
    }

private:
    static void Report(netSocketStream &stream, int percent, int primes) {
        stream.WriteInt(percent);
        stream.WriteInt(primes);
        stream.Flush();
    }
    static bool Count(netSocketStream &stream, int limit, evtEvent *stop) {
        int primes = 0, number = 2;
        for (int step = 1; step <= steps; ++step) {
            const auto end = static_cast<int>(static_cast<long long>(limit) * step / steps);
            for (; number < end; ++number) {
                if (number % 1024 == 0 && stop->getIsSignaled()) {
                    Report(stream, stopped, primes);
                    return false;
                }
                primes += IsPrime(number);
            }
            Report(stream, 100 / steps * step, primes);
        }
        return true;
    }
};

}  // namespace

void Serve(const std::string &name) {
    Requests requests;
    LongRequests long_requests;
    const std::unique_ptr<netServer> server(netServer::Create(name.c_str(), 0));
    if (!server) throw std::runtime_error(std::string("no port: ") + Error_GetText(Error_GetLast()));
    server->setOnRequest(&requests);
    server->setOnAsyncRequest(&long_requests);
    Say("serving on port " + std::to_string(server->getPortN()) + ", registered as " + name);
    server->Run();
    Say("told to shut down");
}
