// Monitor files: one process publishes named parameters in a file, and others read their present values while
// it goes on. doc/monitor.md has the format byte by byte.
//
// A parameter is a record that is appended once and appears to readers whole or not yet; its value has a
// fixed place in it, which each setValue rewrites with one write. There is one writer; readers only read. A
// file that is cut short, half written or made to harm is reported (_Abort), and reading stops at the last
// whole record. An object and its parameters belong to one thread at a time.
#pragma once

#include <memory>
#include <vector>

#include <kelstdmt/declare.h>
#include <kelstdmt/export.h>
#include <kelstdmt/iolib.h>
#include <kelstdmt/xstring.h>

class monFile;

KEL_DECLARE_STRUCT(monParam)
class KELSTDMT_API monParam : public xobject {
    KEL_CLASS(monParam, xobject)
public:
    virtual xstring getName();

protected:
    monParam(monFile *file, const char *name, long long slot);  // enters itself in the file's dictionary

    xstring m_name;
    monFile *m_file;
    long long m_slot;  // bytes from the start of the file

private:
    friend class monFile;
};

// getValue answers what is in the file now, or the type's nil value, reported, when the file is damaged
// there. setValue answers the value. Both throw ioXStream when the file is closed or the system fails.
KEL_DECLARE_STRUCT(monIntParam)
class KELSTDMT_API monIntParam : public monParam {
    KEL_CLASS(monIntParam, monParam)
public:
    int getValue();
    int setValue(int value);

private:
    friend class monFile;
    using monParam::monParam;
};

KEL_DECLARE_STRUCT(monBoolParam)
class KELSTDMT_API monBoolParam : public monParam {
    KEL_CLASS(monBoolParam, monParam)
public:
    unsigned char getValue();
    unsigned char setValue(unsigned char value);

private:
    friend class monFile;
    using monParam::monParam;
};

KEL_DECLARE_STRUCT(monRealParam)
class KELSTDMT_API monRealParam : public monParam {
    KEL_CLASS(monRealParam, monParam)
public:
    double getValue();
    double setValue(double value);

private:
    friend class monFile;
    using monParam::monParam;
};

KEL_DECLARE_STRUCT(monStringParam)
class KELSTDMT_API monStringParam : public monParam {
    KEL_CLASS(monStringParam, monParam)
public:
    xstring getValue();
    // A text longer than the size is refused: reported, not written, and the null string is the answer.
    xstring setValue(const char *text);
    int getSize() const noexcept { return m_size; }  // bytes at most

private:
    friend class monFile;
    monStringParam(monFile *file, const char *name, long long slot, int size);
    int m_size;
};

KEL_DICTIONARY(monParamDict, monParam *)

KEL_DECLARE_STRUCT(monFile)
class KELSTDMT_API monFile : public xobject {
    KEL_CLASS(monFile, xobject)
public:
    ~monFile() override;

    // Null when the file cannot be made or opened, or is no monitor file. An existing file is overwritten
    // from its beginning. The caller owns the object.
    static monFile *Create(const char *path, const char *title);
    static monFile *Open(const char *path);
    // For a file that may not be written: looking up a name that is missing gives null, setting a value
    // throws.
    static monFile *OpenReadOnly(const char *path);

    // The parameter of this name, made when it is missing; null when it is of another type. They belong to
    // the file. Names have at most 1,023 bytes.
    monIntParam *Int(const char *name);
    monBoolParam *Bool(const char *name);
    monRealParam *Real(const char *name);
    monStringParam *String(const char *name, int size);

    xstring getTitle() const { return m_title; }
    monParamDict *getParams() { return &m_params; }  // as of the last look-up
    // Takes in what the writer has added, without a look-up; false when the file is damaged.
    bool Refresh();
    // All parameters in the order of the file, as of the last look-up.
    const std::vector<monParam *> &Parameters() const noexcept { return m_in_order; }

    void Close();

private:
    friend class monParam;

    monFile() = default;

    std::unique_ptr<ioFileStream> m_stream;
    xstring m_title;
    long long m_known_end = 0;
    xauto<monParamDict> m_params;
    int m_header = 0;
    long long m_after_header = 0;
    std::vector<monParam *> m_in_order;
};
