#ifndef ORV_CF_VALUES_H
#define ORV_CF_VALUES_H

#include "Object.h"

#include <string_view>

struct OrvCFDate final : OrvCF::Object {
    static constexpr OrvCF::Kind classKind = OrvCF::Kind::date;

    explicit OrvCFDate(CFAbsoluteTime time)
        : Object(classKind)
        , seconds(time)
    {
    }
    bool equals(const Object& other) const override;
    CFHashCode hash() const override;

    const CFAbsoluteTime seconds;
};

struct OrvCFData final : OrvCF::Object {
    static constexpr OrvCF::Kind classKind = OrvCF::Kind::data;

    explicit OrvCFData(std::string_view content);
    bool equals(const Object& other) const override;
    CFHashCode hash() const override;

    std::string_view bytes() const { return {reinterpret_cast<const char*>(m_bytes.get()), m_count}; }

private:
    const size_t m_count;
    const std::unique_ptr<UInt8[]> m_bytes;
};

#endif
