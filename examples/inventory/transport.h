// The main job: an inventory goes out through a stream in an encoding, comes back as new objects, and is
// compared with what was sent.
#pragma once

#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "types.h"

struct Encoding {
    const char *name;
    const char *file;  // the ending of file names
    ioSerializer *(*serializer)();
};
inline constexpr std::array<Encoding, 3> encodings{{{"text", "text", &ioSerializer::getAscii},
                                                    {"binary", "binary", &ioSerializer::getBinary},
                                                    {"XDR", "xdr", &ioSerializer::getXDR}}};

// What one journey gave.
struct Journey {
    const char *stream = nullptr;
    const char *encoding = nullptr;
    long long bytes = 0;
    double write_seconds = 0;
    double read_seconds = 0;
    long long compared = 0;  // values
    std::string difference;  // empty: all that was sent came back
};

// Where the files lie: in a folder of the user's own, which is made if it does not exist, or in the one for
// temporary files. Everything throws XFile.
class DataFolder {
public:
    DataFolder() = default;
    explicit DataFolder(std::filesystem::path keep);

    // For reading and writing: "inventory.ENDING", new or emptied, in the user's folder. Without one, a file
    // without a name.
    std::unique_ptr<ioFileStream> Create(const std::string &ending) const;
    // A file whose name is gone as soon as it is open, so that nothing is left behind whatever happens.
    std::unique_ptr<ioFileStream> CreateUnnamed() const;

private:
    std::filesystem::path m_keep;
};

// Writes, and makes sure that all of it has arrived in the file: throws XFile when it has not.
void WriteFile(ioFileStream &file, ioSerializer *encoding, Inventory &inventory);

// Through files, pipes and texts in memory, each in every encoding. A journey that fails says so in its
// difference.
std::vector<Journey> Travel(Inventory &inventory, const DataFolder &folder);

// Inside a handler: what the exception at hand says, in one line.
std::string WhatHappened();
