// What the programs of this example know of each other.
#pragma once

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include <kelstdmt/kelstdmt.h>
#include <kelstdmt/netlib.h>

inline constexpr const char *service_name = "Arithmetic";

// A connection is one request: an int that tells which, then its operands. All values travel in XDR.
enum Wish : int {
    // Operator (text) and two reals. The answer: a text, empty or why not, then the result as a real.
    calculate = 1,
    // A limit (int): how many primes lie below. The answer, again and again while the server counts: how far
    // it is in percent, and the primes so far, two ints. 100 is the last; `stopped` is, when it has to go.
    count_primes = 2
};
inline constexpr int stopped = -1;

enum ExitCode : int { done = 0, failed = 1, wrong_usage = 2, refused = 3 };

// Thrown by a client whom the server does not let in.
class Refused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The three roles that are programs of their own. Servers are written NAME or NAME@HOST.
void Serve(const std::string &name);
void Ask(const std::string &server);                                // a sum, a failure, a long job
void Calculate(const std::string &server, const std::string &sum);  // one sum, such as "17 + 25"
void End(const std::string &server);                                // questions about it, and its shutdown

// All of it: name server, server, clients, and where it can be made a second machine; prints who says what.
ExitCode Stage(const std::string &program);
// The same without a second machine, for the reason given; and with one, in a network that this process and
// its children have for themselves.
ExitCode StagePlainly(const std::string &program, const std::string &reason);
ExitCode StageInOwnNetwork(const std::string &program);

// A line on standard output, at once and whole, from any thread.
void Say(const std::string &line);
