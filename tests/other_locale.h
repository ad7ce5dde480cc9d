// A locale of an encoding that the library does not know by itself: Japanese in EUC, made for the test.
#pragma once

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

// Set while it lives, then "C" again. False where localedef is missing or cannot make it.
class other_locale {
public:
    explicit other_locale(const std::string &temporary) {
        namespace files = std::filesystem;
        const files::path folder =
            files::path(temporary) / ("other_locale_" + std::to_string(std::random_device()()));
        files::create_directories(folder);
        // Warnings of localedef do not matter; whether the locale can be set does.
        const std::string command =
            "localedef -c -i ja_JP -f EUC-JP '" + (folder / "ja_JP.EUC-JP").string() + "' >/dev/null 2>&1";
        if (std::system(command.c_str()) >= 0) {
            setenv("LOCPATH", folder.c_str(), 1);
            m_set = std::setlocale(LC_ALL, "ja_JP.EUC-JP") != nullptr;
            unsetenv("LOCPATH");
        }
        files::remove_all(folder);
    }
    other_locale(const other_locale &) = delete;
    other_locale &operator=(const other_locale &) = delete;
    ~other_locale() { std::setlocale(LC_ALL, "C"); }

    explicit operator bool() const { return m_set; }

private:
    bool m_set = false;
};
