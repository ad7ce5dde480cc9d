// Descriptors that run out.
#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include <vector>

// Leaves that many descriptors to the process while it lives.
struct Scarcity {
    explicit Scarcity(int left) {
        ::getrlimit(RLIMIT_NOFILE, &before);
        const rlimit low{200, before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &low);
        for (int fd; (fd = ::dup(0)) >= 0;)
            taken.push_back(fd);
        while (left-- > 0)
            GiveOne();
    }
    ~Scarcity() {
        while (!taken.empty())
            GiveOne();
        ::setrlimit(RLIMIT_NOFILE, &before);
    }
    void GiveOne() {
        ::close(taken.back());
        taken.pop_back();
    }
    rlimit before{};
    std::vector<int> taken;
};
