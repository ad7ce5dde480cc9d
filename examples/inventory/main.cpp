// inventory: the library's main job on real input. The account files of this machine, or those named, become
// declared values; these print themselves, travel through every stream in every encoding, and are compared
// with what was sent.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <string_view>

#include "reading.h"
#include "show.h"
#include "table.h"
#include "transport.h"

namespace {

enum ExitCode { everything_equal = 0, something_failed = 1, wrong_usage = 2 };

constexpr const char *usage = R"(Usage: inventory [--keep FOLDER] [PASSWD GROUP]

Reads accounts and groups from /etc/passwd and /etc/group, or from two files of that form, prints some, sends
all of them through a file, a pipe and a string stream in text, binary and XDR encoding, compares what comes
back, and prints a table.

  --keep FOLDER  keep the files, as inventory.text, inventory.binary and inventory.xdr in FOLDER; files of
                 these names are replaced. Otherwise they lie in the folder for temporary files (TMPDIR) and
                 are removed.
  --help         print this

Exit code: 0 when all came back equal, 1 when something did not, or a file could not be read, 2 for a wrong
command line.
)";

struct Options {
    const char *passwd = "/etc/passwd";
    const char *group = "/etc/group";
    const char *keep = nullptr;
    bool help = false;
    std::string mistake;  // what is wrong with the command line
};

Options Parse(int count, char **arguments) {
    Options options;
    std::vector<const char *> files;
    for (int i = 1; i < count; ++i) {
        std::string_view argument = arguments[i];
        if (argument == "--help" || argument == "-h")
            options.help = true;
        else if (argument == "--keep" && i + 1 < count)
            options.keep = arguments[++i];
        else if (argument == "--keep")
            options.mistake = "--keep needs a folder";
        else if (argument.starts_with('-'))
            options.mistake = "there is no option " + std::string(argument);
        else
            files.push_back(arguments[i]);
    }
    if (files.size() == 2) {
        options.passwd = files[0];
        options.group = files[1];
    } else if (!files.empty() && options.mistake.empty()) {
        options.mistake = "expected two files, accounts and groups, found " + std::to_string(files.size());
    }
    return options;
}

void Complain(const std::string &what) {
    std::cerr << "inventory: " << what << '\n';
}

void CheckOutput() {
    errno = 0;
    if (!std::cout.flush())
        XFile::Throw("standard output", errno ? std::strerror(errno) : "It takes no more bytes.");
}

// False when the file could not be read.
template <class Read>
bool ReadFile(Read read, const char *path, Inventory &into, const std::string &unit) {
    try {
        ReadCounts counts = read(path, into);
        std::cout << "  " << Counted(counts.taken, unit) << " from " << path;
        if (counts.skipped > 0) std::cout << " (" << Counted(counts.skipped, "malformed line") << " skipped)";
        std::cout << '\n';
        return true;
    } catch (xthrowable *thrown) {
        kel::caught error(thrown);
        auto *file = error.as<XFile>();
        if (!file) error.rethrow();
        Complain("cannot read " + unit + "s from \"" + std::string(file->getPath()) + "\": " +
                 std::string(file->getReason()) + " Name a file in the form of /etc/passwd or /etc/group.");
        return false;
    }
}

// True when all came back equal.
bool Conclude(const std::vector<Journey> &journeys, Inventory &inventory, const Options &options) {
    std::cout << "\n3. All of it through every stream, in every encoding\n\n"
              << "Each row: " << Counted(inventory.Accounts.getarraysize(), "account") << " and "
              << Counted(inventory.Groups.getcount(), "group") << " are written to a stream, read back into "
              << "new objects and\ncompared with the old ones value by value.\n\n";
    PrintTable(std::cout, journeys);
    auto equal = std::count_if(journeys.begin(), journeys.end(),
                               [](const Journey &journey) { return journey.difference.empty(); });
    std::cout << "\nA pipe is written by one thread and read by another at the same time.\n";
    if (options.keep) std::cout << "The files are kept in " << options.keep << ".\n";
    std::cout << '\n' << equal << " of " << journeys.size() << " came back equal";
    if (equal > 0) {
        auto compared = std::max_element(journeys.begin(), journeys.end(), [](auto &a, auto &b) {
                            return a.compared < b.compared;
                        })->compared;
        std::cout << "; " << WithSeparators(compared) << " values were compared each time";
    }
    std::cout << ".\n";
    CheckOutput();
    for (const Journey &journey : journeys)
        if (!journey.difference.empty())
            Complain(std::string(journey.encoding) + " through a " + journey.stream + ": " +
                     journey.difference);
    return equal == static_cast<std::ptrdiff_t>(journeys.size());
}

int Run(const Options &options) {
    std::cout << "kelstdmt inventory: account files become declared values, which print themselves, travel "
                 "through\n"
                 "every stream in every encoding, and are compared with what was sent.\n\n";
    CheckOutput();
    DataFolder folder = options.keep ? DataFolder(options.keep) : DataFolder();
    xrchandle<Inventory> inventory(kel::construct<Inventory>());
    bool read = ReadFile(ReadAccounts, options.passwd, *inventory, "account");
    read = ReadFile(ReadGroups, options.group, *inventory, "group") && read;
    if (inventory->Accounts.getarraysize() == 0 && inventory->Groups.getcount() == 0) {
        Complain("there is no account and no group to go on with");
        return something_failed;
    }
    ShowValues(std::cout, *inventory);
    CheckOutput();
    ShowFailures(std::cout, *inventory, folder);
    CheckOutput();
    bool equal = Conclude(Travel(*inventory, folder), *inventory, options);
    return equal && read ? everything_equal : something_failed;
}

}  // namespace

int main(int count, char **arguments) {
    try {
        Options options = Parse(count, arguments);
        if (options.help) {
            std::cout << usage;
            CheckOutput();
            return everything_equal;
        }
        if (!options.mistake.empty()) {
            Complain(options.mistake);
            std::cerr << usage;
            return wrong_usage;
        }
        return Run(options);
    } catch (...) {
        Complain(WhatHappened());
        return something_failed;
    }
}
