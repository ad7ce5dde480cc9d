// The machines that search, beside each other: what backtracking or an automaton finds, the simulation finds
// too. It alone serves programs with a first character that the pattern does not ask for.
#pragma once

#include <kelstdmt/regexp.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

namespace regexp_machines {

// In a block exactly as long as its program, so that the sanitizers see a look beyond it.
inline kel::owned_regexp exact_copy(const regexp &program) {
    const auto header = static_cast<std::size_t>(program.program - reinterpret_cast<const char *>(&program));
    kel::owned_regexp copy(static_cast<regexp *>(std::malloc(header + program.programSize)));
    std::memcpy(static_cast<void *>(copy.get()), &program, header + program.programSize);
    if (program.mustText) copy->mustText = copy->program + (program.mustText - program.program);
    return copy;
}

// The places of the match and of its groups, or the error.
inline std::string answer(regexp &program, std::string_view text, std::size_t from) {
    setErrSeen("");
    std::string result = kel::search(program, text, from) ? "found" : "nothing";
    for (int group = 0; group < 10; ++group)
        for (const char *place : {program.groupStart[group], program.groupEnd[group]})
            result += place ? " " + std::to_string(place - text.data()) : " -";
    return result + getErrSeen();
}

// What the simulation answers otherwise; empty when it cannot be asked, or finds damage that does not matter
// without a first character.
inline std::string disagreement(regexp &program, std::string_view text, std::size_t from) {
    const std::string given = answer(program, text, from);
    const char *start = program.groupStart[0] ? program.groupStart[0] : text.data() + from;
    if (program.firstChar[0] || start >= text.data() + text.size()) return "";
    const char second = std::exchange(program.firstChar[1], '\0');
    program.firstChar[0] = *start;
    const std::string simulated = answer(program, text, from);
    program.firstChar[0] = '\0';
    program.firstChar[1] = second;
    return given == simulated || *getErrSeen() ? "" : given + ", but by the simulation " + simulated;
}

}  // namespace regexp_machines
