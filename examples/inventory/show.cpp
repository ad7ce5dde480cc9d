#include "show.h"

#include <ostream>

#include "coding.h"
#include "reading.h"
#include "table.h"

namespace {

// Fits on a screen, whatever the account files hold.
bool IsShort(const Account &account) {
    std::size_t length = account.Name.GetSize() + account.Home.GetSize() + account.Shell.Path.GetSize();
    if (account.FullName) length += account.FullName->GetSize();
    for (const xstring &group : account.Groups)
        length += group.GetSize();
    return length < 400;
}

xrchandle<Account> MadeUp() {
    return ParseAccount("ada:x:1000:1000:Ada Lovelace:/home/ada:/bin/bash", "an example", 1);
}

// The first one that is fit to be shown.
xrchandle<Account> Shown(Inventory &inventory) {
    for (const xrchandle<Account> &account : inventory.Accounts)
        if (IsShort(*account)) return account;
    return MadeUp();
}

// A file that ends in the middle. Its error is printed when the file is closed: an exception outlives the
// stream that it tells of.
void ShowCutFile(std::ostream &out, Inventory &inventory, const DataFolder &folder) {
    xrchandle<Inventory> found(kel::construct<Inventory>());
    try {
        std::unique_ptr<ioFileStream> file = folder.CreateUnnamed();
        WriteFile(*file, ioSerializer::getXDR(), inventory);
        int size = file->TellSize();
        out << "\nA file in XDR, cut from " << WithSeparators(size) << " to " << WithSeparators(size / 2)
            << " bytes and read again:\n\n";
        file->Truncate(size / 2);
        file->SeekOff(0, ioBegin);
        Progress progress("reading the cut file");
        ReadInventory(*file, *found, progress);
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        if (auto *file = error.as<XFile>()) {
            out << "\n(There is no file to cut: " << file->getPath() << ": " << file->getReason() << ")\n";
            return;
        }
        if (!error.is<ioXStream>()) error.rethrow();
        out << error << '\n';
    }
    out << '(' << WithSeparators(found->Accounts.getarraysize()) << " of "
        << WithSeparators(inventory.Accounts.getarraysize()) << " accounts were whole)\n";
}

}  // namespace

void ShowValues(std::ostream &out, Inventory &inventory) {
    constexpr int shown_lines = 3;
    xrchandle<Account> first = Shown(inventory);
    out << "\n1. Declared values print themselves\n\n"
           "The types are declared in examples/inventory/types.cpp; no code of theirs prints them.\n"
           "An account on several lines:\n\n"
        << kel::printed(first) << "\n\nOthers on one line each:\n\n";
    int lines = 0;
    for (const xrchandle<Account> &account : inventory.Accounts) {
        if (lines == shown_lines) break;
        if (account.get() == first.get() || !IsShort(*account)) continue;
        out << kel::printed(account, true) << '\n';
        ++lines;
    }
    if (lines == 0) out << "(there are no others)\n";

    out << "\nThe dictionary of groups, asked by name for the first group of \"" << first->Name << "\":\n\n";
    xrchandle<Group> group;
    if (first->Groups.getarraysize() == 0 || !inventory.Groups.find(first->Groups.get(0), group))
        out << "(it belongs to none)\n";
    else if (group->Members.getarraysize() > 10)
        out << group->Name << " has " << group->Members.getarraysize() << " members\n";
    else
        out << kel::printed(group, true) << '\n';
}

void ShowFailures(std::ostream &out, Inventory &inventory, const DataFolder &folder) {
    out << "\n2. What goes wrong is a value too\n\n"
           "An exception is declared like any other type, and prints with its fields.\n"
           "A malformed line:\n\n";
    try {
        ParseAccount("ada:x:1000", "example", 1);
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        out << error << '\n';
    }

    out << "\nA field name that a login shell does not have:\n\n";
    // Held to the end: the exception refers to a part of it.
    xrchandle<Account> account = Shown(inventory);
    try {
        account->Shell.lookupfield("Pth");
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        out << error << '\n';
    }

    ShowCutFile(out, inventory, folder);
}
