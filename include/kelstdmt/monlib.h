// Monitor files: one process publishes named parameters in a file, and others read their present values while
// it goes on. doc/monitor.md has the format byte by byte.
//
// A parameter is a record that is appended once and appears to readers whole or not yet; its value has a
// fixed place in it, which each setValue rewrites with one write. There is one writer; readers only read. A
// file that is damaged is reported (_Abort), once for each place, and reading stops at the last whole record;
// a record that is not all there yet is no damage. An object and its parameters belong to one thread at a
// time.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/iolib.h>
#include <kelstdmt/xstring.h>

class monFile;

// A parameter belongs to its file and dies with it.
KEL_DECLARE_STRUCT(monParam)
class KELSTDMT_API monParam : public xobject {
    KEL_CLASS(monParam, xobject)
public:
    virtual xstring getName();  // under which it was looked up

protected:
    // Enters itself in the file's dictionary. Type and, for a string, size are those of the record.
    monParam(monFile *file, const char *name, long long slot, int type, int size);

    // The bytes of the value as they are in the file: those of a number, and one byte of a bool. False when
    // the file ends before.
    bool ReadNumber(void *to, unsigned count, unsigned skip = 0);
    void ReportOnce(const char *text, int line);  // until a value is read again

    xstring m_name;
    monFile *m_file;
    long long m_slot;  // bytes from the start of the file
    int m_size;        // of a string, bytes at most
    bool m_reported = false;

private:
    friend class monFile;

    // The value, from two copies of what the file has at the slot; uninit when they do not give one that is
    // whole.
    virtual xany FromBytes(const char *bytes, const char *again, long long count) const = 0;

    long long m_slot_size;
    int m_type;
    bool m_replaced = false;  // by a later record of the same name
};

// getValue answers what is in the file now, or the type's nil value, reported, when the file is damaged
// there. setValue answers the value. Both throw ioXStream when the file is closed or the system fails; a
// later call may succeed again.
KEL_DECLARE_STRUCT(monIntParam)
class KELSTDMT_API monIntParam : public monParam {
    KEL_CLASS(monIntParam, monParam)
public:
    int getValue();
    int setValue(int value);

private:
    friend class monFile;
    using monParam::monParam;
    xany FromBytes(const char *bytes, const char *again, long long count) const override;
};

KEL_DECLARE_STRUCT(monBoolParam)
class KELSTDMT_API monBoolParam : public monParam {
    KEL_CLASS(monBoolParam, monParam)
public:
    xbool getValue();  // as that of monIntParam
    xbool setValue(xbool value);

private:
    friend class monFile;
    using monParam::monParam;
    xany FromBytes(const char *bytes, const char *again, long long count) const override;
};

KEL_DECLARE_STRUCT(monRealParam)
class KELSTDMT_API monRealParam : public monParam {
    KEL_CLASS(monRealParam, monParam)
public:
    double getValue();  // as that of monIntParam
    double setValue(double value);

private:
    friend class monFile;
    using monParam::monParam;
    xany FromBytes(const char *bytes, const char *again, long long count) const override;
};

KEL_DECLARE_STRUCT(monStringParam)
class KELSTDMT_API monStringParam : public monParam {
    KEL_CLASS(monStringParam, monParam)
public:
    xstring getValue();  // as that of monIntParam
    // A text longer than the size is refused: reported, not written, and the null string is the answer. A
    // null pointer and the text markers write the empty text.
    xstring setValue(const char *text);
    int getSize() const noexcept { return m_size; }  // bytes at most

private:
    friend class monFile;
    using monParam::monParam;
    xany FromBytes(const char *bytes, const char *again, long long count) const override;

    enum class Look { Whole, CutOff, TooLong };
    Look LookAt(std::string &text);
};

KEL_DICTIONARY(monParamDict, monParam *)

KEL_DECLARE_STRUCT(monFile)
class KELSTDMT_API monFile : public xobject {
    KEL_CLASS(monFile, xobject)
public:
    ~monFile() override;

    // Each is null when the file cannot be made or opened, or is no monitor file (last error 13; 50 for what
    // is no file on a disk). The caller owns the object. Create overwrites an existing file from its
    // beginning: records that stand whole behind a title of the same length are found again by look-ups,
    // anything else goes with the first new record.
    static monFile *Create(const char *path, const char *title);
    static monFile *Open(const char *path);
    // For a file that may not be written: looking up a name that is missing gives null, setting a value
    // throws.
    static monFile *OpenReadOnly(const char *path);

    // For each type, the parameter of this name, made when it is missing; null when it is of another type,
    // and when the name is no text. Names have at most 1,023 bytes, strings a size of 0 to 2^31 - 5; beyond
    // that it is reported and null. A record that a killed writer left incomplete is cut off by the next one
    // that is made. Throws ioXStream when the file is closed or the system fails; then no part of the record
    // stays.
    monIntParam *Int(const char *name);
    monBoolParam *Bool(const char *name);
    monRealParam *Real(const char *name);
    monStringParam *String(const char *name, int size);

    xstring getTitle() const { return m_title; }
    monParamDict *getParams() { return &m_params; }  // as of the last look-up
    // Takes in what the writer has added, without a look-up; false when the file is damaged or has shrunk.
    bool Refresh();
    // The parameters in the order of the file, as of the last look-up or Refresh.
    const std::vector<monParam *> &Parameters() const noexcept { return m_in_order; }
    // The values of Parameters(), one for one, each whole and what its getValue answers, but read together:
    // for thousands of parameters this takes a handful of system calls.
    std::vector<xany> Values();

    void Close();  // values can no longer be read or set; the parameters stay

private:
    friend class monParam;
    friend class monIntParam;
    friend class monBoolParam;
    friend class monRealParam;
    friend class monStringParam;

    enum class State { Whole, Incomplete, Damaged, Shrunk };

    monFile() = default;
    static monFile *OpenStream(const char *path, ioOpenMode mode);
    bool WriteHeader(const char *title);
    bool ReadHeader();

    monParam *LookUp(const char *name, int type, int size);
    monParam *Append(const char *name, int type, int size);
    long long PlaceForRecord();
    void WriteRecord(long long at, const std::string &bytes, long long end);
    monParam *AddParameter(const char *name, long long slot, int type, int size);
    State CatchUp();
    bool IsFiller(const char *name) const;
    State Report(State state, const char *text, int line);
    void LeaveOutReplaced();

    std::unique_ptr<ioFileStream> m_stream;
    xstring m_title;
    long long m_known_end = 0;
    xauto<monParamDict> m_params;
    int m_header = 0;
    long long m_after_header = 0;
    long long m_size = 0;  // of the file, as of the last look-up
    State m_state = State::Whole;
    bool m_overwrites = false;  // what follows the known records is left from before Create
    bool m_some_replaced = false;
    const char *m_reported = nullptr;  // the last report, and
    long long m_reported_at = -1;      // the known end at that time
    std::vector<std::unique_ptr<monParam>> m_owned;
    std::vector<monParam *> m_in_order;
};
