#ifndef ORV_CF_NUMBER_H
#define ORV_CF_NUMBER_H

#include "Object.h"

#include <variant>

struct OrvCFNumber final : OrvCF::Object {
    static constexpr OrvCF::Kind classKind = OrvCF::Kind::number;

    /// An integer is a uint64_t from 2^63 on, below that an int64_t.
    using Value = std::variant<int64_t, uint64_t, double>;

    /// `sizedType` is one of the six types whose names tell a size.
    OrvCFNumber(CFNumberType sizedType, Value number);

    bool equals(const Object& other) const override;
    CFHashCode hash() const override;

    bool isReal() const { return std::holds_alternative<double>(value); }

    const CFNumberType type;
    const Value value;
};

struct OrvCFBoolean final : OrvCF::Object {
    static constexpr OrvCF::Kind classKind = OrvCF::Kind::boolean;

    constexpr explicit OrvCFBoolean(bool truth)
        : Object(classKind, OrvCF::Life::constant)
        , value(truth)
    {
    }

    bool equals(const Object& other) const override;
    CFHashCode hash() const override;

    const bool value;
};

#endif
