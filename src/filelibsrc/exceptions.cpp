// The exceptions of the file library, and the two tables behind them: from the last error to a code, and
// from a code to its description and class.
#include <kelstdmt/filelib_exceptions.h>

#include <ostream>

namespace {

struct translation {
    unsigned last_error;
    fsErrorCode code;
};
constexpr translation translations[] = {
    {2, fsErrDoesNotExist},      {3, fsErrDoesNotExist},
    {5, fsErrNoPermission},      {12, fsErrNoPermission},
    {32, fsErrInvalidPath},      {39, fsErrDiskFull},
    {65, fsErrNoPermission},     {80, fsErrFileExists},
    {112, fsErrDiskFull},        {145, fsErrFileExists},
    {162, fsErrSignal},          {183, fsErrFileExists},
    {206, fsErrInvalidPath},     {267, fsErrDoesNotExist},
    {994, fsErrNoPermission},    {995, fsErrIOError},
    {996, fsErrIOError},         {997, fsErrIOError},
    {1016, fsErrIOError},        {1117, fsErrIOError},
    {1751, fsErrDoesNotExist},   {1816, fsErrQuotaExhausted},
    {0x80028CA2, fsErrIOError},  {0x80030005, fsErrNoPermission},
    {0x80030070, fsErrDiskFull}, {0x80070005, fsErrNoPermission},
};

struct kind {
    const char *description;
    void (*throw_it)(const char *path, const char *description, kelXFunc *func);
};
constexpr kind kinds[] = {
    {"Success", &fsXOther::Throw},  // nobody throws a success on purpose
    {"IO Error", &fsXIOError::Throw},
    {"Quota Exhausted", &fsXQuotaExhausted::Throw},
    {"Disk Full", &fsXDiskFull::Throw},
    {"Invalid file name", &fsXInvalidName::Throw},
    {"Invalid path", &fsXInvalidPath::Throw},
    {"File or directory does not exist", &fsXDoesNotExist::Throw},
    {"File exists", &fsXFileExists::Throw},
    {"Symbolic links not supported", &fsXLinksNotSupported::Throw},
    {"Permission Denied", &fsXNoPermission::Throw},
    {"Signal caught", &fsXSignal::Throw},
    {"Internal error", &fsXOther::Throw},
};
static_assert(std::size(kinds) == fsErrOther + 1);

}  // namespace

fsErrorCode fsErrorFromLast(int last_error) noexcept {
    for (const translation &entry : translations)
        if (entry.last_error == static_cast<unsigned>(last_error)) return entry.code;
    return fsErrOther;
}

const char *fsErrorDescription(int code) noexcept {
    return code >= 0 && code <= fsErrOther ? kinds[code].description : "No description";
}

void fsThrow(fsErrorCode code, const char *function, const char *path) {
    if (code <= fsErrSuccess || code > fsErrOther) code = fsErrOther;
    xrchandle<kelXFunc> func = kel::construct<kelXFunc>(function);
    kinds[code].throw_it(path, kinds[code].description, func.get());
    __builtin_unreachable();
}

fsXException::fsXException(const char *path, const char *description, kelXFunc *func)
    : kelXExternFunc(description, func), m_path(kel::detail::stored(path)) {}

xrchandle<fsXException> fsXException::Create(const char *path, const char *description, kelXFunc *func) {
    return kel::construct<fsXException>(path, description, func);
}

void fsXException::Print(std::ostream &out) const {
    kelXExternFunc::Print(out);
    if (!m_path.IsNull()) out << "\t( Path: \"" << m_path << "\" )\n";
}

template <class T>
[[noreturn]] static void throw_new(const char *path, const char *description, kelXFunc *func) {
    xrchandle<T> thrown = T::Create(path, description, func);
    xthrow(thrown.get());
}

#define FS_EXCEPTION(T)                                                                 \
    xrchandle<T> T::Create(const char *path, const char *description, kelXFunc *func) { \
        return kel::construct<T>(path, description, func);                              \
    }                                                                                   \
    void T::Throw(const char *path, const char *description, kelXFunc *func) {          \
        throw_new<T>(path, description, func);                                          \
    }

FS_EXCEPTION(fsXIOError)
FS_EXCEPTION(fsXQuotaExhausted)
FS_EXCEPTION(fsXDiskFull)
FS_EXCEPTION(fsXInvalidName)
FS_EXCEPTION(fsXInvalidPath)
FS_EXCEPTION(fsXDoesNotExist)
FS_EXCEPTION(fsXFileExists)
FS_EXCEPTION(fsXLinksNotSupported)
FS_EXCEPTION(fsXNoPermission)
FS_EXCEPTION(fsXSignal)
FS_EXCEPTION(fsXOther)
