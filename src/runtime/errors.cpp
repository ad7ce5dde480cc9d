// The last error of each thread, and the one table that turns the system's errors into the numbers
// that callers know.
#include <kelstdmt/vumrt.h>

#include <cerrno>
#include <filesystem>

namespace {

thread_local int last_error = 0;

constexpr int no_such_file = 2, no_such_folder = 3, unnamed_error = 31, file_exists = 80, exists = 183,
              no_folder = 267;

// A file system that only reads (EROFS) refuses the access: 12 is a refusal to those who sort by numbers.
struct translation {
    int system;
    int number;
};
constexpr translation translations[] = {
    {ENOENT, 2},         {ESTALE, 2},          {EMFILE, 4},           {ENFILE, 4},
    {EACCES, 5},         {EPERM, 5},           {EISDIR, 5},           {ENOKEY, 5},
    {EBADF, 6},          {ENOMEM, 8},          {EROFS, 12},           {EXDEV, 17},
    {ENODEV, 20},        {ENXIO, 21},          {ENOMEDIUM, 21},       {EBUSY, 32},
    {ETXTBSY, 32},       {EAGAIN, 33},         {ENOTSUP, 50},         {ECONNRESET, 64},
    {EKEYEXPIRED, 65},   {EKEYREJECTED, 65},   {EEXIST, 80},          {EINVAL, 87},
    {EFAULT, 87},        {ESRCH, 87},          {EPIPE, 109},          {ENOSPC, 112},
    {ENOSYS, 120},       {ETIMEDOUT, 121},     {ECHILD, 128},         {ESPIPE, 132},
    {ENOTEMPTY, 145},    {EINTR, 162},         {ENOEXEC, 193},        {ENAMETOOLONG, 206},
    {E2BIG, 206},        {EFBIG, 223},         {ENOTDIR, 267},        {EOVERFLOW, 534},
    {ECANCELED, 995},    {EINPROGRESS, 997},   {EALREADY, 997},       {EIO, 1117},
    {EREMOTEIO, 1117},   {EBADMSG, 1117},      {EUCLEAN, 1117},       {EDEADLK, 1131},
    {EMLINK, 1142},      {ECONNREFUSED, 1225}, {EADDRNOTAVAIL, 1214}, {EADDRINUSE, 10048},
    {ENETUNREACH, 1231}, {EHOSTUNREACH, 1232}, {ECONNABORTED, 1236},  {EDQUOT, 1816},
    {ELOOP, 1921},       {ENOTCONN, 2250},     {EPROTO, 64},          {ENOBUFS, 8},
    {EAFNOSUPPORT, 50},
};

struct wording {
    int number;
    const char *text;
};
constexpr wording wordings[] = {
    {0, "No error."},
    {2, "There is no such file."},
    {3, "There is no such folder."},
    {4, "Too many files are open."},
    {5, "Access is denied."},
    {6, "The handle is not valid."},
    {8, "There is not enough memory."},
    {12, "The file system is read-only."},
    {13, "The data are not valid."},
    {17, "The two paths are on different file systems."},
    {18, "There are no more entries."},
    {19, "The medium is write-protected."},
    {20, "There is no such device."},
    {21, "The device is not ready."},
    {31, "The system reported a failure."},
    {32, "It is in use by another process."},
    {33, "It is locked by another holder."},
    {39, "The disk is full."},
    {50, "The operation is not supported here."},
    {64, "The connection was cut by the other side."},
    {65, "The network refuses the access."},
    {80, "The file exists already."},
    {87, "An argument is not valid."},
    {109, "The other end of the pipe is closed."},
    {112, "The disk is full."},
    {120, "The system does not offer this function."},
    {121, "The time ran out."},
    {123, "The name is not valid."},
    {128, "There is no child process to wait for."},
    {132, "There is no position to seek to here."},
    {145, "The folder is not empty."},
    {162, "A signal interrupted the operation."},
    {183, "It exists already."},
    {193, "It is not a program that this system runs."},
    {206, "The name is too long."},
    {223, "The file would become too large."},
    {267, "It is not a folder."},
    {534, "The value is too large."},
    {995, "The operation was interrupted."},
    {996, "The operation is not complete."},
    {997, "The operation is still going on."},
    {1006, "Another file has taken its place."},
    {1016, "The registry could not be read or written."},
    {1018, "The registry key was deleted."},
    {1117, "The device reported an input or output error."},
    {1131, "Waiting for this lock would never end."},
    {1142, "There are too many links to the file."},
    {1214, "The network address is not available on this machine."},
    {1225, "The other side refused the connection."},
    {1231, "The network cannot be reached."},
    {1232, "The host cannot be reached."},
    {1236, "The connection was given up."},
    {1460, "The time-out has passed."},
    {1816, "A quota is exhausted."},
    {1921, "The links lead in a circle."},
    {2250, "There is no connection."},
    {10048, "The port is taken."},
    {11001, "There is no such host."},
};

}  // namespace

int Error_GetLast() noexcept {
    return last_error;
}

void Error_SetLast(int number) noexcept {
    last_error = number;
}

void Error_SetLastFromSystem(int system_error) noexcept {
    last_error = unnamed_error;
    for (const translation &entry : translations) {
        if (entry.system == system_error) {
            last_error = entry.number;
            break;
        }
    }
}

// The numbers know more than errno does: whether it is the last entry that is missing or no folder, or what
// stands above it, and what it is that exists.
void Error_SetLastFromSystem(int system_error, const char *host_path) noexcept {
    Error_SetLastFromSystem(system_error);
    if (!host_path) return;
    try {
        std::filesystem::path path(host_path);
        if (!path.has_filename()) path = path.parent_path();
        std::error_code ignored;
        if (last_error == no_such_file || last_error == no_folder) {
            std::filesystem::path above = path.parent_path();
            if (!above.empty() && !std::filesystem::is_directory(above, ignored)) last_error = no_such_folder;
        } else if (last_error == file_exists && std::filesystem::is_directory(path, ignored)) {
            last_error = exists;
        }
    } catch (...) {
        // No memory for the finer answer.
    }
}

const char *Error_GetText(int number) noexcept {
    for (const wording &entry : wordings)
        if (entry.number == number) return entry.text;
    return "An unknown error occurred.";
}
