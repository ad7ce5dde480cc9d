// kel nms: looks at the records of a name server and changes them.
#include "nms.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <iterator>
#include <limits>

#include "command.h"
#include "json.h"
#include "terminal.h"
#include "text.h"
#include "waiting.h"

namespace tool {

namespace {

// What all commands of the group take.
struct Place {
    std::string host;
    const CLI::Option *named = nullptr;
    double patience = 10;
    bool json = false;
};

NameServer At(const Place &place) {
    if (place.named->count() && place.host.empty()) throw Misuse("a host has a name: --host \"\"");
    return {place.host, place.patience};
}
// What a name server grants to its own machine alone, and the client does not even ask of another.
NameServer AtOwn(const Place &place, const char *what) {
    if (place.named->count() && !IsThisMachine(place.host))
        throw Failure(std::string(what) + " only on its own machine, not from here on " +
                      Printable(place.host));
    return {"", place.patience};
}

// FIELD=VALUE, and the two fields that servers are found by as bare words, the name and the port.
kel::name_record RecordOf(const std::vector<std::string> &words) {
    kel::name_record record;
    const char *bare[] = {kel::server_name_field, kel::server_port_field};
    std::size_t known = 0;
    for (const std::string &word : words) {
        const std::size_t equals = word.find('=');
        if (equals == 0) throw Misuse("a field has a name: " + word);
        if (equals != std::string::npos) {
            record.set(word.substr(0, equals), word.substr(equals + 1));
        } else {
            if (known == std::size(bare)) throw Misuse("not expected: " + word);
            if (bare[known] == kel::server_port_field && !ToPort(word))
                throw Misuse("no port from 1 to 65535: " + word);
            record.set(bare[known++], word);
        }
    }
    return record;
}

std::string Field(const kel::name_record &record, const char *name) {
    const std::string *value = record.find(name);
    return value ? *value : "";
}

Json JsonOf(const std::vector<kel::name_record> &records) {
    Json document, list = Json::array();
    for (const kel::name_record &record : records) {
        Json &object = list.emplace_back();
        if (const std::string *server = record.find(kel::server_name_field))
            PutBytes(object, "server", *server);
        if (std::optional<int> port = ToInteger(Field(record, kel::server_port_field)))
            object["port"] = *port;
        object["process"] = record.process ? Json(record.process) : Json();
        Json fields = Json::array();
        for (const auto &[name, value] : record.fields) {
            Json &field = fields.emplace_back();
            PutBytes(field, "name", name);
            PutBytes(field, "value", value);
        }
        object["fields"] = std::move(fields);
    }
    document["records"] = std::move(list);
    return document;
}

// list -------------------------------------------------------------------------------------------

using Row = std::array<std::string, 4>;

Row RowOf(const kel::name_record &record) {
    auto shown = [](const std::string &text) { return text.empty() ? "-" : Printable(text); };
    std::string others;
    for (const auto &[name, value] : record.fields)
        if (name != kel::server_name_field && name != kel::server_port_field)
            others += (others.empty() ? "" : "  ") + Printable(name) + '=' + Printable(value);
    return {shown(Field(record, kel::server_name_field)), shown(Field(record, kel::server_port_field)),
            record.process ? std::to_string(record.process) : "-", others};
}

void PrintTable(const std::vector<Row> &rows) {
    std::array<std::size_t, 3> widths{};
    for (const Row &row : rows)
        for (std::size_t i = 0; i < widths.size(); ++i)
            widths[i] = std::max(widths[i], Width(row[i]));
    for (const Row &row : rows) {
        std::string line;
        for (std::size_t i = 0; i < widths.size(); ++i)
            line += Fitted(row[i], widths[i]) + "  ";
        line += row.back();
        std::cout << Trimmed(line) << '\n';
    }
}

ExitCode List(const Place &options) {
    std::vector<kel::name_record> records = At(options).Query({});
    std::stable_sort(records.begin(), records.end(),
                     [](const kel::name_record &a, const kel::name_record &b) {
                         return Field(a, kel::server_name_field) < Field(b, kel::server_name_field);
                     });
    if (options.json) {
        PrintJson(JsonOf(records));
        return done;
    }
    std::vector<Row> rows{{"SERVER", "PORT", "PROCESS", "OTHER FIELDS"}};
    std::transform(records.begin(), records.end(), std::back_inserter(rows), RowOf);
    PrintTable(rows);
    return done;
}

// query, register, delete ------------------------------------------------------------------------

struct Named : Place {
    std::vector<std::string> words;
    unsigned process = 0;
};

ExitCode Query(const Named &options) {
    const kel::name_record wanted = RecordOf(options.words);
    NameServer server = At(options);
    const std::vector<kel::name_record> records = server.Query(wanted);
    if (records.empty()) throw Failure("the name server on " + server.Place() + " has no such record");
    if (options.json) {
        PrintJson(JsonOf(records));
        return done;
    }
    for (const kel::name_record &record : records) {
        if (&record != &records.front()) std::cout << '\n';
        for (const auto &[name, value] : record.fields)
            std::cout << Printable(name) << " = " << Printable(value) << '\n';
        if (record.process) std::cout << "(process) = " << record.process << '\n';
    }
    return done;
}

ExitCode Register(const Named &options) {
    kel::name_record record = RecordOf(options.words);
    record.process = options.process;
    if (!record.process) {
        At(options).Register(record);
        return done;
    }
    NameServer server = AtOwn(options, "a record is bound to a process");
    if (!nmsRecord(record.process).IsAlive())
        throw Failure("no such process: " + std::to_string(record.process));
    server.Register(record);
    return done;
}

ExitCode Delete(const Named &options) {
    const kel::name_record wanted = RecordOf(options.words);
    const int count = At(options).Delete(wanted);
    std::cout << count << (count == 1 ? " record deleted\n" : " records deleted\n");
    return done;
}

// ping, version, shutdown ------------------------------------------------------------------------

ExitCode Ping(const Place &options) {
    NameServer server = At(options);
    const double seconds = server.Ping();
    if (options.json) {
        Json document;
        document["alive"] = true;
        document["seconds"] = NumberOf(seconds);
        PrintJson(document);
    } else {
        std::cout << "the name server on " << server.Place() << " answers: " << DurationText(seconds) << '\n';
    }
    return done;
}

ExitCode Version(const Place &options) {
    NameServer server = At(options);
    const kel::name_record answer = server.Version();
    const std::string *version = answer.find("Version");
    if (!version) throw Failure("the name server on " + server.Place() + " does not tell its version");
    if (options.json) {
        Json document;
        PutBytes(document, "version", *version);
        PrintJson(document);
    } else {
        std::cout << Printable(*version) << '\n';
    }
    return done;
}

ExitCode Shutdown(const Place &options) {
    AtOwn(options, "a name server is shut down").Shutdown();
    return done;
}

// ------------------------------------------------------------------------------------------------

void AddPlace(CLI::App &line, Place &place) {
    place.named = AddArgument(line, "--host", place.host, "Ask the name server of this host, not of this one")
                      ->type_name("HOST");
    AddTimeout(line, place.patience);
}

void AddNamed(CLI::App &line, Named &options) {
    AddArguments(line, "FIELD", options.words, "The fields; NAME and PORT alone mean those of a server")
        ->option_text("FIELD=VALUE...");
    AddPlace(line, options);
}

void AddCommands(CLI::App &group) {
    group.require_subcommand(1);
    group.footer(
        "A server is registered with the fields _ServerName and _PortNumber, which may be written as\n"
        "bare words: `query adder` is `query _ServerName=adder`. A port other than 1239 is told by\n"
        "the environment variable ORVNMSPORT.");
    {
        auto [line, options] = AddCommand(group, "list", "List all records, those of servers by name", List);
        AddJson(line, options.json);
        AddPlace(line, options);
    }
    {
        auto [line, options] =
            AddCommand(group, "query", "Print the records that have all these fields", Query);
        AddNamed(line, options);
        AddJson(line, options.json);
    }
    {
        auto [line, options] = AddCommand(group, "register", "Add a record with these fields", Register);
        AddNamed(line, options);
        line.add_option("--process", options.process, "Bind it to a process, with whose end it goes")
            ->check(CLI::Range(2, std::numeric_limits<int>::max()))
            ->type_name("ID");
        line.footer(
            "`kel nms register adder 4711 owner=ann`. Without --process it stays until it is deleted.");
    }
    {
        auto [line, options] =
            AddCommand(group, "delete", "Delete the records that have all these fields", Delete);
        AddNamed(line, options);
    }
    {
        auto [line, options] = AddCommand(group, "ping", "Ask whether a name server answers", Ping);
        AddJson(line, options.json);
        AddPlace(line, options);
    }
    {
        auto [line, options] = AddCommand(group, "version", "Print the version of a name server", Version);
        AddJson(line, options.json);
        AddPlace(line, options);
    }
    {
        auto [line, options] = AddCommand(group, "shutdown", "End the name server of this machine", Shutdown);
        AddPlace(line, options);
    }
}

const Group group("nms", "Show and change what is registered with a name server", AddCommands);

}  // namespace

}  // namespace tool
