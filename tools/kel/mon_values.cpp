#include "mon_values.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>
#include <utility>

#include <kelstdmt/vumrt.h>
#include <kelstdmt/xtypes.h>

#include "failure.h"
#include "text.h"

namespace tool {

namespace {

constexpr std::array<std::pair<MonitorType, const char *>, 4> type_names = {{{MonitorType::boolean, "bool"},
                                                                             {MonitorType::integer, "int"},
                                                                             {MonitorType::real, "real"},
                                                                             {MonitorType::text, "string"}}};

unsigned char ToBoolean(const std::string &text) {
    if (text == "true" || text == "1") return 1;
    if (text == "false" || text == "0") return 0;
    throw Failure("neither true nor false: " + Printable(text));
}

int ToWhole(const std::string &text) {
    if (std::optional<int> number = ToInteger(text)) return *number;
    throw Failure("no whole number of 32 bits: " + Printable(text));
}

double ToReal(const std::string &text) {
    if (std::optional<double> number = ToNumber(text)) return *number;
    throw Failure("no number: " + Printable(text));
}

// Opening a pipe would wait for somebody at its other end.
void CheckKind(const std::string &path) {
    std::error_code unknown;
    auto status = std::filesystem::status(btkHostPath(path.c_str()), unknown);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        throw Failure("not a monitor file: " + Printable(path));
}

std::unique_ptr<monFile> Opened(monFile *opened, const std::string &path) {
    std::unique_ptr<monFile> file(opened);
    if (file) return file;
    constexpr int bad_data = 13;  // by what the file holds
    if (Error_GetLast() == bad_data) throw Failure("not a monitor file: " + Printable(path));
    throw LastErrorFailure("cannot open", path);
}

}  // namespace

const char *NameOf(MonitorType type) {
    return std::find_if(type_names.begin(), type_names.end(),
                        [&](auto &known) { return known.first == type; })
        ->second;
}

std::optional<MonitorType> TypeNamed(const std::string &name) {
    for (auto [type, known] : type_names)
        if (name == known) return type;
    return std::nullopt;
}

MonitorType TypeOf(monParam &parameter) {
    if (dynamic_cast<monBoolParam *>(&parameter)) return MonitorType::boolean;
    if (dynamic_cast<monIntParam *>(&parameter)) return MonitorType::integer;
    if (dynamic_cast<monRealParam *>(&parameter)) return MonitorType::real;
    return MonitorType::text;
}

MonitorValue ValueOf(monParam &parameter) {
    MonitorValue value{TypeOf(parameter), std::nullopt, std::nullopt};
    auto number = [&value](auto found) {
        if (!kel::is_nil(found) && !kel::is_uninit(found)) value.number = static_cast<double>(found);
    };
    switch (value.type) {
        case MonitorType::boolean:
            number(static_cast<monBoolParam &>(parameter).getValue());
            break;
        case MonitorType::integer:
            number(static_cast<monIntParam &>(parameter).getValue());
            break;
        case MonitorType::real:
            number(static_cast<monRealParam &>(parameter).getValue());
            break;
        case MonitorType::text:
            xstring text = static_cast<monStringParam &>(parameter).getValue();
            if (kel::is_text(text)) value.text = text.Str();
    }
    return value;
}

std::string ShownValue(const MonitorValue &value) {
    if (value.text) return Printable(*value.text);
    if (!value.number) return "nil";
    if (value.type == MonitorType::boolean) return *value.number != 0 ? "true" : "false";
    return value.type == MonitorType::integer ? std::to_string(static_cast<int>(*value.number))
                                              : NumberText(*value.number);
}

void PutValue(Json &object, const MonitorValue &value) {
    object["type"] = NameOf(value.type);
    if (value.text) {
        PutBytes(object, "value", *value.text);
    } else if (!value.number) {
        object["value"] = nullptr;
    } else if (value.type == MonitorType::boolean) {
        object["value"] = *value.number != 0;
    } else if (value.type == MonitorType::integer) {
        object["value"] = static_cast<int>(*value.number);
    } else {
        object["value"] = NumberOf(*value.number);
    }
}

void CheckValue(MonitorType type, int size, const std::string &text) {
    if (type == MonitorType::boolean) ToBoolean(text);
    if (type == MonitorType::integer) ToWhole(text);
    if (type == MonitorType::real) ToReal(text);
    if (type == MonitorType::text && text.size() > static_cast<std::size_t>(std::max(size, 0)))
        throw Failure("longer than " + std::to_string(size) + " bytes: " + Printable(text));
}

void SetValue(monParam &parameter, const std::string &text) {
    switch (TypeOf(parameter)) {
        case MonitorType::boolean:
            static_cast<monBoolParam &>(parameter).setValue(ToBoolean(text));
            break;
        case MonitorType::integer:
            static_cast<monIntParam &>(parameter).setValue(ToWhole(text));
            break;
        case MonitorType::real:
            static_cast<monRealParam &>(parameter).setValue(ToReal(text));
            break;
        case MonitorType::text:
            auto &bounded = static_cast<monStringParam &>(parameter);
            CheckValue(MonitorType::text, bounded.getSize(), text);
            bounded.setValue(text.c_str());
    }
}

std::string NameOf(monParam &parameter) {
    return std::string(kel::view(parameter.getName()));
}

std::string TitleOf(const monFile &file) {
    return std::string(kel::view(file.getTitle()));
}

std::unique_ptr<monFile> OpenForReading(const std::string &path) {
    CheckKind(path);
    Error_SetLast(0);
    return Opened(monFile::OpenReadOnly(path.c_str()), path);
}

std::unique_ptr<monFile> OpenForWriting(const std::string &path) {
    CheckKind(path);
    Error_SetLast(0);
    return Opened(monFile::Open(path.c_str()), path);
}

monParam *FindParameter(monFile &file, const std::string &name) {
    monParam *found = nullptr;
    for (monParam *parameter : file.Parameters())
        if (NameOf(*parameter) == name) found = parameter;
    return found;
}

}  // namespace tool
