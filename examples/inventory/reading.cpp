#include "reading.h"

#include <array>
#include <charconv>
#include <iostream>
#include <unordered_map>

#include "lines.h"
#include "progress.h"

namespace {

constexpr int reported_lines = 10;  // of a file; the rest is only counted

xstring Text(std::string_view text) {
    return xstring::FromBytes(text.data(), text.size());
}

// What an error message shows of a text.
std::string Quoted(std::string_view text) {
    constexpr std::size_t most = 40;
    return '"' + std::string(text.substr(0, most)) + (text.size() > most ? "...\"" : "\"");
}

// One line on its way into fields: every complaint becomes an XMalformedLine.
struct Line {
    std::string_view text;
    const char *file;
    int number;

    [[noreturn]] void Complain(const std::string &reason) const {
        XMalformedLine::Throw(file, number, reason.c_str());
    }

    // What no account file holds would also reach the terminal of whoever prints it.
    void CheckBytes() const {
        for (std::size_t i = 0; i < text.size(); ++i) {
            auto byte = static_cast<unsigned char>(text[i]);
            if ((byte < 0x20 && byte != '\t') || byte == 0x7f)
                Complain("byte " + std::to_string(i + 1) + " is the control character " +
                         std::to_string(byte));
        }
    }

    template <std::size_t N>
    std::array<std::string_view, N> Split() const {
        std::array<std::string_view, N> fields;
        std::size_t count = 1, begin = 0;
        for (std::size_t i = 0; i <= text.size(); ++i) {
            if (i < text.size() && text[i] != ':') continue;
            if (count <= N) fields[count - 1] = text.substr(begin, i - begin);
            begin = i + 1;
            if (i < text.size()) ++count;
        }
        if (count != N)
            Complain("expected " + std::to_string(N) + " fields between colons, found " +
                     std::to_string(count));
        return fields;
    }

    xstring Name(std::string_view field) const {
        if (field.empty()) Complain("the name is empty");
        return Text(field);
    }

    int Id(const char *what, std::string_view field) const {
        int id = 0;
        auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), id);
        if (error != std::errc() || end != field.data() + field.size() || id < 0)
            Complain(std::string(what) + ' ' + Quoted(field) + " is no number from 0 to 2147483647");
        return id;
    }
};

ShellKind KindOf(std::string_view shell) {
    if (shell.empty()) return shellDefault;
    for (std::string_view refusing : {"/nologin", "/false", "/true", "/sync", "/shutdown", "/halt"})
        if (shell.ends_with(refusing)) return shellNone;
    return shellInteractive;
}

// Reads all lines of a file; take gets each one, and tells by an XMalformedLine what is wrong with it.
template <class Take>
ReadCounts ReadLines(const char *path, const char *unit, Take take) {
    ReadCounts counts;
    Lines lines(path);
    Progress progress(std::string("reading ") + path);
    std::string_view text;
    while (lines.Next(text)) {
        progress.Step("lines");
        if (text.empty() || text.front() == '#') continue;
        try {
            take(text, lines.Number());
            ++counts.taken;
        } catch (xthrowable *thrown) {
            kel::caught error(thrown);
            auto *malformed = error.as<XMalformedLine>();
            if (!malformed) error.rethrow();
            if (++counts.skipped > reported_lines) continue;
            progress.Wipe();
            std::cerr << path << ':' << malformed->getLine() << ": skipped: " << malformed->getReason()
                      << '\n';
        }
    }
    progress.Wipe();
    if (counts.skipped > reported_lines)
        std::cerr << path << ": " << counts.skipped - reported_lines
                  << " more lines are malformed and skipped\n";
    if (!lines.Cut().empty()) std::cerr << path << ": " << lines.Cut() << "; name a file of " << unit << '\n';
    return counts;
}

}  // namespace

xrchandle<Account> ParseAccount(std::string_view text, const char *file, int number) {
    const Line line{text, file, number};
    line.CheckBytes();
    auto [name, password, uid, gid, person, home, shell] = line.Split<7>();
    xrchandle<Account> account(kel::construct<Account>());
    account->Name = line.Name(name);
    account->Uid = line.Id("the user id", uid);
    account->Gid = line.Id("the group id", gid);
    // The full name ends at the first comma; room and telephone numbers follow.
    if (std::string_view full = person.substr(0, person.find(',')); !full.empty())
        account->FullName = Text(full);
    account->Home = Text(home);
    account->Shell.Path = Text(shell);
    account->Shell.Kind = KindOf(shell);
    return account;
}

xrchandle<Group> ParseGroup(std::string_view text, const char *file, int number) {
    const Line line{text, file, number};
    line.CheckBytes();
    auto [name, password, gid, members] = line.Split<4>();
    xrchandle<Group> group(kel::construct<Group>());
    group->Name = line.Name(name);
    group->Gid = line.Id("the group id", gid);
    while (!members.empty()) {
        std::size_t comma = std::min(members.find(','), members.size());
        if (comma > 0) group->Members.append(Text(members.substr(0, comma)));
        members.remove_prefix(std::min(comma + 1, members.size()));
    }
    return group;
}

ReadCounts ReadAccounts(const char *path, Inventory &into) {
    return ReadLines(path, "accounts, such as /etc/passwd", [&](std::string_view text, int number) {
        xrchandle<Account> account = ParseAccount(text, path, number);
        if (!into.Add(account))
            XMalformedLine::Throw(path, number,
                                  ("there is an account " + Quoted(account->Name) + " already").c_str());
    });
}

ReadCounts ReadGroups(const char *path, Inventory &into) {
    std::unordered_map<int, xstring> primary;  // names by number
    ReadCounts counts = ReadLines(path, "groups, such as /etc/group", [&](std::string_view text, int number) {
        xrchandle<Group> group = ParseGroup(text, path, number);
        if (!into.Add(group))
            XMalformedLine::Throw(path, number,
                                  ("there is a group " + Quoted(group->Name) + " already").c_str());
        primary.emplace(group->Gid, group->Name);
    });
    for (const xrchandle<Account> &account : into.Accounts)
        if (auto found = primary.find(account->Gid); found != primary.end())
            account->Groups.append(found->second);
    for (const xstring &name : into.GroupNames) {
        xrchandle<Group> group;
        into.Groups.find(name, group);
        for (const xstring &member : group->Members) {
            xrchandle<Account> account;
            if (into.ByName.find(member, account) && group->Gid != account->Gid) account->Groups.append(name);
        }
    }
    return counts;
}
