#include "machine.h"

#include <array>
#include <stdexcept>

#include <kelstdmt/syslib.h>

std::string SecondMachine::Starter() {
    // The superuser's way, and everybody's where users may have namespaces.
    static constexpr std::array starters = {"unshare --net", "unshare --net --map-root-user"};
    constexpr const char *trial = " sh -c 'command -v nsenter && ip link add here type veth peer name there'";
    for (const char *starter : starters)
        if (sysOSCall((std::string(starter) + trial + " >/dev/null 2>&1").c_str()) == 0) return starter;
    return "";
}

SecondMachine::SecondMachine() : m_words(ioPipe::Create()), m_answers(ioPipe::Create()) {
    if (!m_words || !m_answers) throw std::runtime_error("no pipe");
    // `cat` holds the other network until its input ends. What it gives back shows that it is there.
    m_holder.reset(pcProcess::Create("unshare --net cat", xstrNullStr, kel_pipe_access::ReadStream(*m_words),
                                     kel_pipe_access::WriteStream(*m_answers), nullptr, 0, 0));
    ioStream &words = *kel_pipe_access::WriteStream(*m_words);
    words.WriteByte('?');
    words.Flush();
    kel_pipe_access::ReadStream(*m_answers)->ReadByte();

    const std::string over = Over(""), holder = std::to_string(m_holder->getId());
    for (const std::string &command :
         {std::string("ip link set lo up"), "ip link add here type veth peer name there netns " + holder,
          std::string("ip address add ") + here + "/24 dev here", std::string("ip link set here up"),
          over + "ip address add " + there + "/24 dev there", over + "ip link set there up"})
        if (sysOSCall(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
}

SecondMachine::~SecondMachine() = default;

std::string SecondMachine::Over(const std::string &command_line) const {
    return "nsenter --net --target " + std::to_string(m_holder->getId()) + ' ' + command_line;
}
