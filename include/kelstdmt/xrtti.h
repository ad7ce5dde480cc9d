// Type descriptors: what generic code knows of a type at run time.
//
// brtti is the question side: public queries that check their arguments and then ask a private
// virtual operation that a kind of descriptor answers. xrtti adds the declared name, its subclasses
// describe enums, classes, structs (exceptions are structs), unions, arrays, sequences and
// dictionaries. A descriptor is constructed empty, initialised once and never changed again, so any
// thread may read it. Two types are the same when their names are equal; down-casts compare the
// descriptor's address. Descriptors are built by the glue of declare.h on first use.
//
// Every query throws the exception of its kind (kelXNotStructType and so on) with the descriptor's
// name when the type is of another kind; queries that take a value throw kelXUnknownType for a value
// without a descriptor and kelXTypeMismatch for a value of another type; an index outside the count,
// a negative one included, throws the exception that carries it.
#pragma once

#include <kelstdmt/export.h>
#include <kelstdmt/xany.h>
#include <kelstdmt/xobject.h>
#include <kelstdmt/xstring.h>

namespace kel::detail {
class printer;
}

class KELSTDMT_API brtti {
public:
    xstring gettypename() { return GiveTypeName(); }  // the declared name, such as "kellib::XNoField"
    bool isenum() { return GiveIsEnum(); }
    bool isclass() { return GiveIsClass(); }
    bool isstruct() { return GiveIsStruct(); }
    bool isarray() { return GiveIsArray(); }
    bool issequence() { return GiveIsSequence(); }
    bool isdictionary() { return GiveIsDictionary(); }
    bool isunion() { return GiveIsUnion(); }

    int getnenumvalues();
    xstring getenumvaluebyindex(int index);  // the enumerator's name
    int getenumindex(xany value);            // a nil or uninit value gives the int's marker
    xstring getenumvalue(xany value);        // its enumerator's name

    int getnparents();
    brtti *getparenttype(int index);
    int getnfields();  // of this struct itself, without its parents'
    xstring getfieldname(int index);
    brtti *getfieldtype(int index);
    // A field that has no value reads as uninit.
    xany getfield(int index, xany value);
    xany lookupfield(const char *name, xany value);  // kelXNoField for a name that no field has
    bool hasfield(const char *name);                 // of this struct itself

    int getnarraydims();
    int getnarrayelems(int dimension);
    brtti *getarraytype();
    xany getarrayelem(int *indices, xany value);  // one index a dimension

    int getnseqelems(xany value);
    brtti *getseqtype();
    xany getseqelem(int index, xany value);
    bool hasindex(int index, xany value);

    int getndictelems(xany value);  // slots, not entries: some give neither key nor element
    brtti *getdicttype();
    bool getdictkey(int index, xany value, xstring &key);  // false for an empty slot
    bool getdictelem(int index, xany value, xany &elem);   // false for an empty slot
    xany lookupdict(const char *key, xany value);          // kelXNoField for a key that is not there
    bool haskey(const char *key, xany value);

    int getnunioncases();
    brtti *getcasetype(int index);
    xstring getcasename(int index);
    xany getcasevalue(int index, xany value);
    brtti *getdiscrtype();
    xany getdiscrvalue(xany value);
    xany getcurcasevalue(xany value);  // kelXInvalidUnionDiscr when the discriminator names no case

    // Same declared name; the same, or a parent's. A null type is no type's kin.
    bool issameas(brtti *type);
    bool iskindof(brtti *type);

    // Prints the value as one of this type; see printlib.h. Null: standard output, default options.
    void printvalue(ioStream *stream, xany value, printData *options = nullptr);

protected:
    void PrintImpl(ioStream *stream, xany value, printData *options);
    void PrintClassImpl(ioStream *stream, xany value, printData *options);

private:
    virtual xstring GiveTypeName() = 0;
    virtual xbool GiveIsEnum();
    virtual int GiveNEnumValues();
    virtual xstring GiveEnumValueByIndex(int index);
    virtual int GiveEnumIndex(xany value);
    virtual xbool GiveIsClass();
    virtual xbool GiveIsStruct();
    virtual int GiveNParents();
    virtual brtti *GiveParentType(int index);
    virtual int GiveNFields();
    virtual brtti *GiveFieldType(int index);
    virtual xany GiveField(int index, xany value);
    virtual xstring GiveFieldName(int index);
    virtual xany GiveFieldByName(const char *name, xany value);
    virtual xbool GiveHasField(const char *name);
    virtual xbool GiveIsArray();
    virtual int GiveNArrayDims();
    virtual int GiveNArrayElems(int dimension);
    virtual xany GiveArrayElem(int *indices, xany value);
    virtual brtti *GiveArrayType();
    virtual xbool GiveIsSequence();
    virtual int GiveNSeqElems(xany value);
    virtual xany GiveSeqElem(int index, xany value);
    virtual brtti *GiveSeqType();
    virtual xbool GiveHasIndex(int index, xany value);
    virtual xbool GiveIsDictionary();
    virtual int GiveNDictElems(xany value);
    virtual brtti *GiveDictType();
    virtual xbool GiveDictKey(int index, xany value, xstring &key);
    virtual xbool GiveDictElem(int index, xany value, xany &elem);
    virtual xany GiveDictElemByKey(const char *key, xany value);
    virtual xbool GiveHasKey(const char *key, xany value);
    virtual xbool GiveIsUnion();
    virtual int GiveNUnionCases();
    virtual brtti *GiveCaseType(int index);
    virtual xstring GiveCaseName(int index);
    virtual xany GiveCaseValue(int index, xany value);
    virtual brtti *GiveDiscrType();
    virtual xany GiveDiscrValue(xany value);
    virtual void OnRoutePrint(ioStream *stream, xany value, printData *options) = 0;
    virtual brtti *Clone();  // a new descriptor for a copied extern value; kelXCannotCloneRTTI

    void require(xbool kind, void (*fail)(const char *));
    void check_value(const xany &value);
    void check_index(int index, int count, void (*fail)(const char *, int));
    xany field_of(int index, xany self);  // of an object whose own descriptor this is
    xany field_of(const char *name, xany self);

    // The case that a discriminator of the value names.
    static int case_index(const xany &value, const xany &discriminator);

    friend class xany;
    friend class kel::detail::printer;
    friend class xobject;

public:
    virtual ~brtti();
};

// A descriptor with a declared name.
class KELSTDMT_API xrtti : public brtti {
public:
    void initialize(const char *name);
    const xstring &getname() const noexcept { return m_name; }

private:
    xstring GiveTypeName() override;
    void OnRoutePrint(ioStream *stream, xany value, printData *options) override;

    xstring m_name;
};

// Enumerator names in value order. The array is not copied.
class KELSTDMT_API xrttienumvalues {
public:
    xrttienumvalues(int count, const char **names) noexcept : m_count(names ? count : 0), m_names(names) {}
    int getarraysize() const noexcept { return m_count; }
    const char *get(int index) const noexcept;  // null outside the array
    const char *operator[](int index) const noexcept { return get(index); }

private:
    int m_count;
    const char **m_names;
};

class KELSTDMT_API xrttienum : public xrtti {
public:
    void initialize(const char *name, xrttienumvalues *values);
    xrttienumvalues *getvalues() const noexcept { return m_values; }

private:
    xbool GiveIsEnum() override;
    int GiveNEnumValues() override;
    xstring GiveEnumValueByIndex(int index) override;
    int GiveEnumIndex(xany value) override;

    xrttienumvalues *m_values = nullptr;
};

class KELSTDMT_API xrtticlass : public xrtti {
public:
    using converter = void *(*)(xobject *);

    void initialize(const char *name, unsigned char isrefcount);
    // Whether objects of the class are counted from their first uni attachment.
    bool getisrefcount() const noexcept { return m_isrefcount != 0; }
    // A place for a conversion of the caller's; the library stores it and never calls it.
    converter getcxx2d() const noexcept { return m_cxx2d; }
    void setcxx2d(converter hook) noexcept { m_cxx2d = hook; }

private:
    xbool GiveIsClass() override;
    void PrintObjImpl(ioStream *stream, xobject *object, printData *options);

    unsigned char m_isrefcount = 0;
    converter m_cxx2d = nullptr;

    friend class xobject;
};

namespace kel::detail {
// Equal names have equal keys.
KELSTDMT_API std::uint64_t name_key(const char *name) noexcept;
}  // namespace kel::detail

// One field of a struct, or one case of a union.
class KELSTDMT_API xrttifield {
public:
    using getter = xany (*)(xrttifield *, xobject *);

    xrttifield(const char *name, unsigned char isoptional, xrtti *type, getter read)
        : m_name(name),
          m_isoptional(isoptional),
          m_type(type),
          m_get(read),
          m_key(kel::detail::name_key(name)) {}
    const xstring &getname() const noexcept { return m_name; }
    bool getisoptional() const noexcept { return m_isoptional != 0; }
    xrtti *gettype() const noexcept { return m_type; }
    xany get(xobject *object) { return m_get ? m_get(this, object) : xany(); }

private:
    xstring m_name;
    unsigned char m_isoptional;
    xrtti *m_type;
    getter m_get;
    std::uint64_t m_key;  // tells most names apart without a look at the text

    friend class xrttifields;
};

// The array is not copied; the fields belong to whoever made them.
class KELSTDMT_API xrttifields {
public:
    xrttifields(int count, xrttifield **fields) noexcept : m_count(fields ? count : 0), m_fields(fields) {}
    int getmapsize() const noexcept { return m_count; }
    xrttifield *getbyindex(int index) const;  // outside the list: "Invalid field index." and null
    bool find(const char *name, xrttifield *&field) const;

private:
    int m_count;
    xrttifield **m_fields;
};

class xrttistruct;

class KELSTDMT_API xrttistructs {
public:
    xrttistructs(int count, xrttistruct **structs) noexcept
        : m_count(structs ? count : 0), m_structs(structs) {}
    int getsize() const noexcept { return m_count; }
    xrttistruct *getbyindex(int index) const;  // outside the list: "Invalid index." and null

private:
    int m_count;
    xrttistruct **m_structs;
};

class KELSTDMT_API xrttistruct : public xrtticlass {
public:
    void initialize(const char *name, unsigned char isrefcount, xrttistructs *parents, xrttifields *fields);
    xrttistructs *getparents() const noexcept { return m_parents; }
    xrttifields *getfields() const noexcept { return m_fields; }

private:
    xbool GiveIsStruct() override;
    int GiveNParents() override;
    brtti *GiveParentType(int index) override;
    int GiveNFields() override;
    brtti *GiveFieldType(int index) override;
    xany GiveField(int index, xany value) override;
    xstring GiveFieldName(int index) override;
    xany GiveFieldByName(const char *name, xany value) override;
    xbool GiveHasField(const char *name) override;

    xrttistructs *m_parents = nullptr;
    xrttifields *m_fields = nullptr;
};

class KELSTDMT_API xrttiunion : public xrtticlass {
public:
    void initialize(const char *name, unsigned char isrefcount, xrttifield *discriminator,
                    xrttifields *cases);
    xrttifield *getdiscriminator() const noexcept { return m_discriminator; }
    xrttifields *getcases() const noexcept { return m_cases; }

private:
    xbool GiveIsUnion() override;
    int GiveNUnionCases() override;
    brtti *GiveCaseType(int index) override;
    xstring GiveCaseName(int index) override;
    xany GiveCaseValue(int index, xany value) override;
    brtti *GiveDiscrType() override;
    xany GiveDiscrValue(xany value) override;

    xrttifield *m_discriminator = nullptr;
    xrttifields *m_cases = nullptr;
};

// An array of fixed size. The sizes are not copied.
class KELSTDMT_API xrttiarray : public xrtticlass {
public:
    using getter = xany (*)(xrttiarray *, int *indices, xobject *);

    void initialize(const char *name, unsigned char isrefcount, int ndims, int *dims,
                    unsigned char iselemoptional, xrtti *elemtype, getter get);
    int getndims() const noexcept { return m_ndims; }
    int *getdimensions() const noexcept { return m_dims; }
    bool getiselemoptional() const noexcept { return m_iselemoptional != 0; }
    xrtti *getelemtype() const noexcept { return m_elemtype; }
    xany get(int *indices, xobject *object) { return m_get ? m_get(this, indices, object) : xany(); }

private:
    xbool GiveIsArray() override;
    int GiveNArrayDims() override;
    int GiveNArrayElems(int dimension) override;
    xany GiveArrayElem(int *indices, xany value) override;
    brtti *GiveArrayType() override;

    int m_ndims = 0;
    int *m_dims = nullptr;
    unsigned char m_iselemoptional = 0;
    xrtti *m_elemtype = nullptr;
    getter m_get = nullptr;
};

class KELSTDMT_API xrttisequence : public xrtticlass {
public:
    using sizer = int (*)(xrttisequence *, xobject *);
    using getter = xany (*)(xrttisequence *, int index, xobject *);

    void initialize(const char *name, unsigned char isrefcount, unsigned char iselemoptional, xrtti *elemtype,
                    sizer size, getter get);
    bool getiselemoptional() const noexcept { return m_iselemoptional != 0; }
    xrtti *getelemtype() const noexcept { return m_elemtype; }
    int getsize(xobject *object) { return m_size ? m_size(this, object) : 0; }
    xany get(int index, xobject *object) { return m_get ? m_get(this, index, object) : xany(); }

private:
    xbool GiveIsSequence() override;
    int GiveNSeqElems(xany value) override;
    xany GiveSeqElem(int index, xany value) override;
    brtti *GiveSeqType() override;
    xbool GiveHasIndex(int index, xany value) override;

    unsigned char m_iselemoptional = 0;
    xrtti *m_elemtype = nullptr;
    sizer m_size = nullptr;
    getter m_get = nullptr;
};

class KELSTDMT_API xrttidictionary : public xrtticlass {
public:
    using sizer = int (*)(xrttidictionary *, xobject *);
    using finder = unsigned char (*)(xrttidictionary *, const char *key, xobject *, xany &);
    using keygetter = unsigned char (*)(xrttidictionary *, int index, xobject *, xstring &);
    using getter = unsigned char (*)(xrttidictionary *, int index, xobject *, xany &);

    void initialize(const char *name, unsigned char isrefcount, unsigned char iselemoptional, xrtti *elemtype,
                    sizer size, finder find, keygetter getkey, getter get);
    bool getiselemoptional() const noexcept { return m_iselemoptional != 0; }
    xrtti *getelemtype() const noexcept { return m_elemtype; }
    int getsize(xobject *object) { return m_size ? m_size(this, object) : 0; }
    bool find(const char *key, xobject *object, xany &elem) {
        return m_find && m_find(this, key, object, elem);
    }
    bool getkey(int index, xobject *object, xstring &key) {
        return m_getkey && m_getkey(this, index, object, key);
    }
    bool get(int index, xobject *object, xany &elem) { return m_get && m_get(this, index, object, elem); }

private:
    xbool GiveIsDictionary() override;
    int GiveNDictElems(xany value) override;
    brtti *GiveDictType() override;
    xbool GiveDictKey(int index, xany value, xstring &key) override;
    xbool GiveDictElem(int index, xany value, xany &elem) override;
    xany GiveDictElemByKey(const char *key, xany value) override;
    xbool GiveHasKey(const char *key, xany value) override;

    unsigned char m_iselemoptional = 0;
    xrtti *m_elemtype = nullptr;
    sizer m_size = nullptr;
    finder m_find = nullptr;
    keygetter m_getkey = nullptr;
    getter m_get = nullptr;
};

// The basic descriptors. Safe from any thread; they live as long as the process.
KELSTDMT_API xrtti *get_xrttibool();
KELSTDMT_API xrtti *get_xrttiint();
KELSTDMT_API xrtti *get_xrttireal();
KELSTDMT_API xrtti *get_xrttistring();
KELSTDMT_API xrtti *get_xrttiany();
KELSTDMT_API xrtticlass *get_xrttiobject();
