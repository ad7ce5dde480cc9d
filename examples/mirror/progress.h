// What the copier publishes in its monitor file, and both programs know by these names.
#pragma once

#include <memory>
#include <string>

#include <kelstdmt/kelstdmt.h>

namespace published {

inline constexpr const char *title = "mirror";
inline constexpr const char *phase = "Phase";         // text: what is being done
inline constexpr const char *file = "File";           // text: the file at work
inline constexpr const char *files = "Files";         // int: done in this phase
inline constexpr const char *all_files = "AllFiles";  // int: to be done; 0 while that is not known
inline constexpr const char *bytes = "Bytes";         // real: the same in bytes
inline constexpr const char *all_bytes = "AllBytes";  // real
inline constexpr const char *ended = "Ended";         // bool
inline constexpr const char *failure = "Failure";     // text: why it ended early; empty when it did not

inline constexpr int phase_size = 32, file_size = fsMaxPath, failure_size = 512;  // bytes

}  // namespace published

// The writer's side. Each value is one parameter and each change one write.
class Progress {
public:
    // A new file: whoever follows the one of an earlier run keeps that.
    explicit Progress(const std::string &path);

    void Begin(const char *phase, double all_files, double all_bytes);
    void Reach(const std::string &file, double files, double bytes);
    void End(const std::string &failure = "");

private:
    std::unique_ptr<monFile> m_file;
    monStringParam *m_phase, *m_name, *m_failure;
    monIntParam *m_files, *m_all_files;
    monRealParam *m_bytes, *m_all_bytes;
    monBoolParam *m_ended;
};

// Reads the file until the writer has ended and prints what changes. False when the writer failed, or has
// neither made the file nor changed it for so many seconds.
bool Follow(const std::string &path, int patience);

// As "1,234,567", and with its unit as "1 file" and "2 files".
std::string Counted(double number);
std::string Counted(double number, const char *unit);
// The host's form, which the reader knows from the command line.
std::string Shown(const std::string &path);
