// Owns a descriptor of the system.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace tool {

class Descriptor {
public:
    // Just got, for the purpose that is told when there was none to be had.
    Descriptor(int number, const char *purpose) : m_number(number) {
        if (number < 0) throw std::system_error(errno, std::generic_category(), purpose);
    }
    ~Descriptor() { close(m_number); }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;

    int Number() const { return m_number; }

private:
    int m_number;
};

}  // namespace tool
