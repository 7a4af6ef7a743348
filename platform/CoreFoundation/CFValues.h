#ifndef ORV_CF_VALUES_H
#define ORV_CF_VALUES_H

#include "Object.h" // IWYU pragma: export

#include <cstdint> // IWYU pragma: export
#include <string> // IWYU pragma: export
#include <string_view> // IWYU pragma: export
#include <utility> // IWYU pragma: export
#include <variant> // IWYU pragma: export

struct OrvCFBoolean final : OrvCF::Leaf<OrvCF::Kind::boolean, bool> {
    using Leaf::Leaf;
};

struct OrvCFDate final : OrvCF::Leaf<OrvCF::Kind::date, CFAbsoluteTime> {
    using Leaf::Leaf;
};

/// A keyed archiver's UID.
struct OrvCFUid final : OrvCF::Leaf<OrvCF::Kind::uid, uint64_t> {
    using Leaf::Leaf;
};

/// It carries no details.
struct OrvCFError final : OrvCF::Leaf<OrvCF::Kind::error, bool> {
    using Leaf::Leaf;
};

struct OrvCFData final : OrvCF::Object {
    static constexpr OrvCF::Kind classKind = OrvCF::Kind::data;

    explicit OrvCFData(std::string content)
        : Object(classKind)
        , bytes(std::move(content))
    {
    }
    bool equals(const Object& other) const override { return bytes == static_cast<const OrvCFData&>(other).bytes; }
    CFHashCode hash() const override { return std::hash<std::string>()(bytes); }

    const std::string bytes;
};

struct OrvCFNumber final : OrvCF::Object {
    static constexpr OrvCF::Kind classKind = OrvCF::Kind::number;

    /// An integer is an int64_t if it fits into one, else a uint64_t.
    using Value = std::variant<int64_t, uint64_t, double>;

    /// `sizedType` is one of the six types named after a size.
    OrvCFNumber(CFNumberType sizedType, Value number)
        : Object(classKind)
        , type(sizedType)
        , value(number)
    {
    }
    bool equals(const Object& other) const override;
    CFHashCode hash() const override;

    const CFNumberType type;
    const Value value;
};

struct OrvCFString final : OrvCF::Object {
    static constexpr OrvCF::Kind classKind = OrvCF::Kind::string;

    explicit OrvCFString(std::u16string text)
        : Object(classKind)
        , m_text(std::move(text))
        , units(m_text)
    {
    }
    /// A constant: `literal` must live as long as the process.
    OrvCFString(std::u16string_view literal, OrvCF::Life constant)
        : Object(classKind, constant)
        , units(literal)
    {
    }
    bool equals(const Object& other) const override { return units == static_cast<const OrvCFString&>(other).units; }
    CFHashCode hash() const override { return std::hash<std::u16string_view>()(units); }

private:
    const std::u16string m_text; // empty in a constant

public:
    const std::u16string_view units;
};

#endif
