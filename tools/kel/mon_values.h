// Parameters of a monitor file, as people and programs read them.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <kelstdmt/monlib.h>

#include "json.h"

namespace tool {

enum class MonitorType { boolean, integer, real, text };
const char *NameOf(MonitorType type);  // "bool", "int", "real", "string"
std::optional<MonitorType> TypeNamed(const std::string &name);
MonitorType TypeOf(monParam &parameter);

// What a parameter holds now. The value that the library keeps for nil has neither a number nor a text.
struct MonitorValue {
    MonitorType type;
    std::optional<double> number;  // of all types but text
    std::optional<std::string> text;
};
MonitorValue ValueOf(monParam &parameter);
std::string ShownValue(const MonitorValue &value);
void PutValue(Json &object, const MonitorValue &value);  // the members "type" and "value"

// Both throw Failure for a text that is no value of the type, or is longer than the size.
void CheckValue(MonitorType type, int size, const std::string &text);
void SetValue(monParam &parameter, const std::string &text);

std::string NameOf(monParam &parameter);
std::string TitleOf(const monFile &file);

// Throw Failure when the file is none; what the file has is known when they return.
std::unique_ptr<monFile> OpenForReading(const std::string &path);
std::unique_ptr<monFile> OpenForWriting(const std::string &path);
// The parameter of this name; null when there is none. The last one counts, as for the library.
monParam *FindParameter(monFile &file, const std::string &name);

}  // namespace tool
