// The declared types of the file library.
#include <kelstdmt/filelib.h>

KEL_DEFINE_ENUM(fsOpMode, "filelib::OpMode", "fsRecursive", "fsSimple")
KEL_DEFINE_ENUM(fsSoftLinkCopyMode, "filelib::SoftLinkCopyMode", "fsNewLink", "fsExpand", "fsIgnore")
KEL_DEFINE_ENUM(fsRecursiveCopyMode, "filelib::RecursiveCopyMode", "fsForceNew", "fsMerge", "fsReplace")
KEL_DEFINE_ENUM(fsNodeType, "filelib::NodeType", "fsFile", "fsDirectory", "fsSoftLink")

KEL_DEFINE_STRUCT(fsNodeInfo, "filelib::NodeInfo", kel::counted, kel::field<&fsNodeInfo::getType>("Type"),
                  kel::field<&fsNodeInfo::ModTime>("ModTime"), kel::field<&fsNodeInfo::getSize>("Size"))

KEL_DEFINE_STRUCT(fsXException, "filelib::XException", kel::counted,
                  kel::field<&fsXException::getPath>("Path"))
KEL_DEFINE_STRUCT(fsXIOError, "filelib::XIOError", kel::counted)
KEL_DEFINE_STRUCT(fsXQuotaExhausted, "filelib::XQuotaExhausted", kel::counted)
KEL_DEFINE_STRUCT(fsXDiskFull, "filelib::XDiskFull", kel::counted)
KEL_DEFINE_STRUCT(fsXInvalidName, "filelib::XInvalidName", kel::counted)
KEL_DEFINE_STRUCT(fsXInvalidPath, "filelib::XInvalidPath", kel::counted)
KEL_DEFINE_STRUCT(fsXDoesNotExist, "filelib::XDoesNotExist", kel::counted)
KEL_DEFINE_STRUCT(fsXFileExists, "filelib::XFileExists", kel::counted)
KEL_DEFINE_STRUCT(fsXLinksNotSupported, "filelib::XLinksNotSupported", kel::counted)
KEL_DEFINE_STRUCT(fsXNoPermission, "filelib::XNoPermission", kel::counted)
KEL_DEFINE_STRUCT(fsXSignal, "filelib::XSignal", kel::counted)
KEL_DEFINE_STRUCT(fsXOther, "filelib::XOther", kel::counted)
