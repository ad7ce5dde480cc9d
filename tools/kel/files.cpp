// kel cp and kel sum: copies of files and trees, and checksums of files.
#include <cstdio>
#include <iostream>

#include <kelstdmt/filelib.h>
#include <kelstdmt/kel.h>
#include <kelstdmt/vumrt.h>

#include "command.h"
#include "json.h"
#include "progress.h"
#include "text.h"

namespace tool {

namespace {

// cp ---------------------------------------------------------------------------------------------

struct Copy {
    std::vector<std::string> paths;  // the last is where to
    bool merge = false, replace = false, only_new = false;
    std::string links = "new";
};

bool EndsInSlash(const std::string &path) {
    return path.ends_with('/') || path.ends_with('\\');
}

// The last component of a source; there is none in "/", "." or "..", whose copy needs a name of its own.
std::string NameOf(const std::string &given) {
    std::string path = given;
    while (EndsInSlash(path))
        path.pop_back();
    std::string name = path.substr(path.find_last_of("/\\") + 1);
    if (name.empty() || name == "." || name == "..")
        throw Failure("the copy needs a name of its own: " + PrintablePath(given));
    return name;
}

// A file goes into a folder that exists, and anything into a folder that is written with a slash at its end.
// Otherwise the copy is what `to` names, so that copying a tree twice gives the same as copying it once.
std::string Target(const std::string &from, const std::string &to, bool many) {
    bool into = many || EndsInSlash(to) || (fshIsDirectory(to.c_str()) && fshIsFile(from.c_str()));
    if (!into) return to;
    if (many && !EndsInSlash(to) && !fshIsDirectory(to.c_str()))
        throw Failure("no folder to copy into: " + PrintablePath(to));
    return (EndsInSlash(to) ? to : to + '/') + NameOf(from);
}

fsSoftLinkCopyMode LinkMode(const std::string &word) {
    return word == "expand" ? fsExpand : word == "ignore" ? fsIgnore : fsNewLink;
}

ExitCode CopyAll(const Copy &options) {
    if (options.paths.size() < 2) throw Misuse("TO is required");
    const std::string &to = options.paths.back();
    bool many = options.paths.size() > 2;
    fsRecursiveCopyMode mode = options.only_new ? fsForceNew : options.replace ? fsReplace : fsMerge;
    Progress progress;
    for (std::size_t i = 0; i + 1 < options.paths.size(); ++i) {
        const std::string &from = options.paths[i];
        std::string target = Target(from, to, many);
        Error_SetLast(0);
        kel::copy_tree(from.c_str(), target.c_str(), mode, LinkMode(options.links), fsRecursive,
                       progress.Observer());
        progress.Add();
    }
    return done;
}

void AddCopy(CLI::App &group) {
    auto [line, options] = WithOptions(group, CopyAll);
    AddArguments(line, "FROM", options.paths, "Files and folders, and the name of the copy")
        ->option_text("FROM... TO");
    CLI::Option *merge =
        line.add_flag("--merge", options.merge, "Write into what TO is, replacing files (the default)");
    CLI::Option *replace = line.add_flag("--replace", options.replace, "Remove what TO is first");
    line.add_flag("--new", options.only_new, "Fail when there is a TO")->excludes(merge)->excludes(replace);
    replace->excludes(merge);
    line.add_option("--links", options.links,
                    "Links inside trees: make the same link, copy what it leads to, "
                    "or leave it out")
        ->check(CLI::IsMember({"new", "expand", "ignore"}))
        ->type_name("")
        ->capture_default_str();
    line.footer(
        "Folders are copied with all that is in them; missing folders above TO are made. TO is the name\n"
        "of the copy, but a file goes into an existing folder TO, and anything into TO/ (with a slash).");
}

// sum --------------------------------------------------------------------------------------------

struct Sum {
    std::vector<std::string> files;
    bool json = false;
};

void PrintSum(const std::string &file, unsigned sum) {
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08x", sum);
    std::cout << digits << "  " << Printable(file) << '\n';
}

// A file that cannot be read is a complaint, and the others have their turn.
ExitCode SumAll(const Sum &options) {
    Progress progress;
    ExitCode code = done;
    Json sums = Json::array();
    for (const std::string &file : options.files) {
        Error_SetLast(0);
        try {
            auto sum = static_cast<unsigned>(kel::calculate_check_sum(file.c_str(), progress.Observer()));
            progress.Add();
            if (options.json) {
                Json &object = sums.emplace_back();
                PutBytes(object, "file", file);
                object["sum"] = sum;
            } else {
                if (options.files.size() > 1 && IsTerminal(Stream::output)) Progress::WipeAll();
                PrintSum(file, sum);
            }
        } catch (xthrowable *thrown) {
            kel::caught error(thrown);
            bool folder = error.is<fsXNoPermission>() && fshIsDirectory(file.c_str());
            Complain(Explained(error) + (folder ? ": It is a folder." : ""));
            code = failed;
        }
    }
    if (options.json) PrintJson(sums);
    return code;
}

void AddSum(CLI::App &group) {
    auto [line, options] = WithOptions(group, SumAll);
    AddArguments(line, "FILE", options.files, "The files");
    AddJson(line, options.json);
    line.footer(
        "A sum shows accidents, not intent: 16 bits of the length, 8 bits of the sum of the bytes, 8 bits\n"
        "of their exclusive-or. It is eight hexadecimal digits, and a number in JSON.");
}

const Group copy_group("cp", "Copy files and folders", AddCopy);
const Group sum_group("sum", "Print the checksums of files", AddSum);

}  // namespace

}  // namespace tool
