// monitor_driver read FILE: prints the title of a monitor file and its parameters, as far as they are whole,
// one a line: TYPE NAME SIZE VALUE, texts as hexadecimal bytes and reals by their bits, each as getValue and
// Values agree on. A last line tells whether the file is damaged. "none" when it cannot be opened.
//
// monitor_driver write FILE TITLE: makes a monitor file and does what the lines of standard input ask for,
// each TYPE NAME SIZE VALUE: the parameter is looked up or made and its value set. Answers each line with
// "ok", or "null" when there is no such parameter, so that a reader can look while it goes on.
#include <bit>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include <kelstdmt/kel.h>
#include <kelstdmt/monlib.h>

static std::string to_hex(std::string_view text) {
    std::string digits = "x";
    for (unsigned char byte : text) {
        char two[3];
        std::snprintf(two, sizeof two, "%02x", byte);
        digits += two;
    }
    return digits;
}
static std::string from_hex(const std::string &digits) {
    std::string text;
    for (std::size_t i = 1; i + 1 < digits.size(); i += 2)
        text += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    return text;
}
static std::string bits_of(double value) {
    return std::to_string(std::bit_cast<std::uint64_t>(value));
}

static void show(monParam *parameter, const xany &value) {
    std::string name = to_hex(kel::view(parameter->getName()));
    std::ostringstream line;
    bool agrees = false;
    if (auto *boolean = dynamic_cast<monBoolParam *>(parameter)) {
        xbool own = boolean->getValue();
        agrees = value == xany(own);
        line << "0 " << name << " 0 " << int{own};
    } else if (auto *integer = dynamic_cast<monIntParam *>(parameter)) {
        int own = integer->getValue();
        agrees = value == xany(own);
        line << "1 " << name << " 0 " << own;
    } else if (auto *real = dynamic_cast<monRealParam *>(parameter)) {
        double own = real->getValue();
        agrees = value.isnil() || value.isuninit() || bits_of(value.getreal()) == bits_of(own);
        line << "2 " << name << " 0 " << bits_of(own);
    } else if (auto *text = dynamic_cast<monStringParam *>(parameter)) {
        xstring own = text->getValue();
        agrees = value == xany(own);
        line << "3 " << name << ' ' << text->getSize() << ' '
             << (kel::is_text(own.Str()) ? to_hex(kel::view(own)) : "nil");
    }
    std::cout << line.str() << (agrees ? "" : " but another value among all") << '\n';
}

static int read(const char *path) {
    std::unique_ptr<monFile> file(monFile::OpenReadOnly(path));
    if (!file) {
        std::cout << "none\n";
        return 0;
    }
    bool whole = file->Refresh();
    std::cout << to_hex(kel::view(file->getTitle())) << '\n';
    std::vector<xany> values = file->Values();
    for (std::size_t i = 0; i < values.size(); ++i)
        show(file->Parameters()[i], values[i]);
    std::cout << (whole ? "whole" : "damaged") << '\n';
    return 0;
}

template <class Parameter, class Value>
static bool set(Parameter *parameter, const Value &value) {
    if (parameter) parameter->setValue(value);
    return parameter != nullptr;
}

static int write(const char *path, const char *title) {
    std::unique_ptr<monFile> file(monFile::Create(path, title));
    if (!file) return 1;
    int type, size;
    for (std::string digits, value; std::cin >> type >> digits >> size >> value;) {
        std::string name = from_hex(digits);
        bool done = type == 0   ? set(file->Bool(name.c_str()), static_cast<xbool>(std::stoi(value)))
                    : type == 1 ? set(file->Int(name.c_str()), std::stoi(value))
                    : type == 2 ? set(file->Real(name.c_str()),
                                      std::bit_cast<double>(std::uint64_t{std::stoull(value)}))
                                : set(file->String(name.c_str(), size), from_hex(value).c_str());
        std::cout << (done ? "ok" : "null") << std::endl;
    }
    return 0;
}

int main(int argc, char **argv) {
    std::string command = argc > 2 ? argv[1] : "";
    if (command == "read") return read(argv[2]);
    if (command == "write" && argc > 3) return write(argv[2], argv[3]);
    return 2;
}
