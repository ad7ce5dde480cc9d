#include <string>

#include "coding.h"
#include "coding_text.h"

namespace {

class Source {
public:
    Source(ioStream &stream, Progress &progress) : m_stream(stream), m_progress(progress) {}

    int Int() {
        m_progress.Step("values");
        return m_stream.ReadInt();
    }
    bool Bool() {
        m_progress.Step("values");
        return m_stream.ReadBool() != 0;
    }
    xstring Text() {
        m_progress.Step("values");
        xstring text = m_stream.ReadString();
        if (!m_text) return text;
        if (!Unquote(text, m_unquoted)) XBadData::Throw("a text does not stand between double quotes");
        return xstring::FromBytes(m_unquoted.data(), m_unquoted.size());
    }
    // Nothing is made room for because a count promises it: lists grow as their elements arrive.
    int Count() {
        int count = Int();
        if (count < 0) XBadData::Throw("a number of elements is negative");
        return count;
    }
    void Expect(const char *text) {
        if (!(Text() == text)) XBadData::Throw((std::string("there is no \"") + text + '"').c_str());
    }

private:
    ioStream &m_stream;
    Progress &m_progress;
    const bool m_text = !m_stream.getSerializer()->getIsBinary();
    std::string m_unquoted;
};

void Read(Source &from, Names &names) {
    for (int left = from.Count(); left > 0; --left)
        names.append(from.Text());
}

void Read(Source &from, LoginShell &shell) {
    shell.Path = from.Text();
    int kind = from.Int();
    if (kind < shellDefault || kind > shellNone) XBadData::Throw("there is no such kind of shell");
    shell.Kind = static_cast<ShellKind>(kind);
}

void Read(Source &from, Account &account) {
    account.Name = from.Text();
    account.Uid = from.Int();
    account.Gid = from.Int();
    if (from.Bool()) account.FullName = from.Text();
    account.Home = from.Text();
    Read(from, account.Shell);
    Read(from, account.Groups);
}

void Read(Source &from, Group &group) {
    group.Name = from.Text();
    group.Gid = from.Int();
    Read(from, group.Members);
}

void Read(Source &from, Inventory &inventory) {
    for (int left = from.Count(); left > 0; --left) {
        xrchandle<Account> account(kel::construct<Account>());
        Read(from, *account);
        if (!inventory.Add(account)) XBadData::Throw("two accounts have one name");
    }
    Read(from, inventory.GroupNames);
    for (int left = from.Count(); left > 0; --left) {
        xstring key = from.Text();
        xrchandle<Group> group(kel::construct<Group>());
        Read(from, *group);
        if (inventory.Groups.haskey(key)) XBadData::Throw("two groups have one name");
        inventory.Groups.set(key, group);
    }
}

}  // namespace

void ReadInventory(ioStream &stream, Inventory &into, Progress &progress) {
    Source from(stream, progress);
    from.Expect(header);
    Read(from, into);
    from.Expect(trailer);
}
