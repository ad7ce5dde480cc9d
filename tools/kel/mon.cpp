// kel mon: what a program publishes in a monitor file.
#include <iostream>

#include <kelstdmt/filelib.h>
#include <kelstdmt/vumrt.h>

#include "command.h"
#include "json.h"
#include "mon_table.h"
#include "mon_values.h"
#include "mon_watch.h"
#include "text.h"

namespace tool {

namespace {

struct Shown {
    std::string file;
    bool json = false;
};

// What is whole in a damaged file is shown, the damage is a complaint.
ExitCode Show(const Shown &options) {
    std::unique_ptr<monFile> file = OpenForReading(options.file);
    bool whole = file->Refresh();
    if (options.json) {
        Json document, parameters = Json::array();
        PutBytes(document, "title", TitleOf(*file));
        for (monParam *parameter : file->Parameters()) {
            Json &object = parameters.emplace_back();
            PutBytes(object, "name", NameOf(*parameter));
            PutValue(object, ValueOf(*parameter));
            if (auto *text = dynamic_cast<monStringParam *>(parameter)) object["size"] = text->getSize();
        }
        document["parameters"] = std::move(parameters);
        PrintJson(document);
    } else {
        std::vector<MonitorRow> rows;
        for (monParam *parameter : file->Parameters())
            rows.push_back({Printable(NameOf(*parameter)), ValueOf(*parameter), {}});
        std::cout << Printable(TitleOf(*file)) << "\n\n";
        MonitorWidths widest;
        for (const std::string &line : MonitorTable(rows, unlimited_columns, widest))
            std::cout << line << '\n';
    }
    return whole && !AnythingReported() ? done : failed;
}

// set --------------------------------------------------------------------------------------------

struct Setting {
    std::string file, name, value, type, title;
    int size = 80;
    const CLI::Option *titled = nullptr;
};

monParam *Make(monFile &file, const Setting &options) {
    const char *name = options.name.c_str();
    switch (*TypeNamed(options.type)) {
        case MonitorType::boolean:
            return file.Bool(name);
        case MonitorType::integer:
            return file.Int(name);
        case MonitorType::real:
            return file.Real(name);
        case MonitorType::text:
            break;
    }
    return file.String(name, options.size);
}

// What a full disk left of a file, no bytes, counts as missing.
std::unique_ptr<monFile> OpenOrMake(const Setting &options) {
    const char *path = options.file.c_str();
    if (options.file.empty() || (fshExists(path) && !(fshIsFile(path) && fshGetSize(path) == 0)))
        return OpenForWriting(options.file);
    if (!options.titled->count())
        throw Failure("no such monitor file (--title makes it): " + Printable(options.file));
    if (options.type.empty())
        throw Failure("no such parameter (--type makes it): " + Printable(options.name));
    CheckValue(*TypeNamed(options.type), options.size, options.value);
    Error_SetLast(0);
    std::unique_ptr<monFile> file(monFile::Create(options.file.c_str(), options.title.c_str()));
    if (!file) throw LastErrorFailure("cannot make", options.file);
    return file;
}

ExitCode Set(const Setting &options) {
    std::unique_ptr<monFile> file = OpenOrMake(options);
    if (!file->Refresh()) throw Failure("damaged: " + Printable(options.file));
    monParam *parameter = FindParameter(*file, options.name);
    if (!parameter) {
        if (options.type.empty())
            throw Failure("no such parameter (--type makes it): " + Printable(options.name));
        CheckValue(*TypeNamed(options.type), options.size, options.value);
        parameter = Make(*file, options);
        if (!parameter) throw LastErrorFailure("cannot make the parameter", options.name);
    } else if (!options.type.empty() && *TypeNamed(options.type) != TypeOf(*parameter)) {
        throw Failure("the parameter is a" +
                      std::string(TypeOf(*parameter) == MonitorType::integer ? "n " : " ") +
                      NameOf(TypeOf(*parameter)) + ": " + Printable(options.name));
    }
    SetValue(*parameter, options.value);
    file->Close();
    return AnythingReported() ? failed : done;
}

// ------------------------------------------------------------------------------------------------

void AddCommands(CLI::App &group) {
    group.require_subcommand(1);
    {
        auto [line, options] = AddCommand(group, "show", "Print all parameters and their values", Show);
        AddArgument(line, "FILE", options.file, "The monitor file")->required();
        AddJson(line, options.json);
    }
    {
        auto [line, options] = AddCommand(group, "watch", "Follow the values until Ctrl+C", Watch);
        AddArgument(line, "FILE", options.file, "The monitor file")->required();
        line.add_option("-n,--interval", options.interval, "Seconds between two looks")
            ->check(SecondsFrom(0.02))
            ->type_name("SECONDS")
            ->capture_default_str();
        line.add_option("--count", options.count, "End after this many looks")
            ->check(CLI::PositiveNumber)
            ->type_name("NUMBER");
        line.footer(
            "At a terminal the arrows, pages, home and end move through a long table, and q ends, too.\n"
            "Elsewhere one table is written behind the other.");
    }
    {
        auto [line, options] = AddCommand(group, "set", "Set the value of a parameter", Set);
        AddArgument(line, "FILE", options.file, "The monitor file")->required();
        AddArgument(line, "NAME", options.name, "The parameter")->required();
        AddArgument(line, "VALUE", options.value, "true, false, a number or a text, by its type")->required();
        line.add_option("--type", options.type, "Make the parameter when it is missing")
            ->check(CLI::IsMember({"bool", "int", "real", "string"}))
            ->type_name("");
        line.add_option("--size", options.size, "The longest value of a new string, in bytes")
            ->check(CLI::Range(0, 1 << 20))
            ->type_name("BYTES")
            ->capture_default_str();
        options.titled = AddArgument(line, "--title", options.title, "Make the file when it is missing")
                             ->type_name("TITLE");
        line.footer("A file has one writer: make parameters only while no other program publishes in it.");
    }
}

const Group group("mon", "Show, follow and set what programs publish in monitor files", AddCommands);

}  // namespace

}  // namespace tool
