// A second machine to all appearances: a network namespace of its own with a cable to this one. It is gone
// when the object is, or this process, however that ends.
#pragma once

#include <memory>
#include <string>

#include <kelstdmt/iolib.h>
#include <kelstdmt/proclib.h>

class SecondMachine {
public:
    static constexpr const char *here = "10.0.1.1", *there = "10.0.1.7";

    // What starts a program in a network of its own, in which such a machine can be made; empty where the
    // system or the user's rights do not allow it.
    static std::string Starter();

    // In such a network.
    SecondMachine();
    ~SecondMachine();

    // The command line that runs this one over there.
    std::string Over(const std::string &command_line) const;

private:
    std::unique_ptr<ioPipe> m_words, m_answers;
    std::unique_ptr<pcProcess> m_holder;
};
