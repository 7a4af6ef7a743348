#ifndef ORV_CF_STRING_H
#define ORV_CF_STRING_H

#include "Object.h"

#include <string>
#include <string_view>

struct OrvCFString final : OrvCF::Object {
    static constexpr OrvCF::Kind classKind = OrvCF::Kind::string;

    explicit OrvCFString(std::u16string text);
    /// A constant: `literal` must live as long as the process.
    OrvCFString(std::u16string_view literal, OrvCF::Life constant);

    bool equals(const Object& other) const override;
    CFHashCode hash() const override;

    std::u16string_view units() const { return m_units; }

private:
    const std::u16string m_text; // empty in a constant
    const std::u16string_view m_units;
};

#endif
