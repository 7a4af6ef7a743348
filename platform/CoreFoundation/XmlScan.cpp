#include "PlistScan.h"

#include <algorithm>

namespace OrvCF {
namespace {

constexpr size_t longText = 4096;
constexpr auto nowhere = std::string_view::npos;

bool startsWith(std::string_view text, std::string_view prefix)
{
    return text.substr(0, prefix.size()) == prefix;
}

/// Goes over the tags as libplist does, and no further: where libplist gives up, so does this, for nothing that follows
/// can then be nested any deeper.
class XmlScan {
public:
    explicit XmlScan(std::string_view text)
        : m_text(text)
    {
    }

    std::optional<std::string> run()
    {
        if (m_text.find('\0') != nowhere)
            return std::nullopt;
        m_out.reserve(m_text.size());
        while (m_at < m_text.size() && m_harmless) {
            takeText();
            if (m_at < m_text.size())
                takeMarkup();
        }
        return m_harmless ? std::optional(std::move(m_out)) : std::nullopt;
    }

private:
    std::string_view rest() const { return m_text.substr(m_at); }

    /// Takes everything up to `end`, or all that is left if that is nowhere.
    void takeUntil(size_t end)
    {
        const std::string_view taken = m_text.substr(m_at, end == nowhere ? nowhere : end - m_at);
        m_out += taken;
        m_at += taken.size();
    }

    void takeText()
    {
        const size_t end = std::min(m_text.find('<', m_at), m_text.size());
        if (m_element == "string" || m_element == "key")
            while (end - m_at > longText)
                takePiece(end);
        takeUntil(end);
    }

    /// libplist moves the whole rest of a text for each entity in it. It does so between comments, so a comment is set
    /// after each few thousand bytes, but never inside an entity.
    void takePiece(size_t end)
    {
        const std::string_view piece = m_text.substr(m_at, longText);
        const size_t entity = piece.rfind('&');
        const bool isOpen = entity != nowhere && piece.find(';', entity) == nowhere;
        const size_t cut = isOpen ? m_text.find(';', m_at + longText) : m_at + longText - 1;
        if (cut >= end) {
            takeUntil(end);
            return;
        }
        takeUntil(cut + 1);
        m_out += "<!---->";
    }

    void takeMarkup()
    {
        // libplist decodes only what stands before the first comment or CDATA section
        if (startsWith(rest(), "<!") && (m_element == "data" || m_element == "date"))
            m_harmless = false;
        if (startsWith(rest(), "<?"))
            takePast(findUnquoted("?>", m_at + 1), 2);
        else if (startsWith(rest(), "<!--"))
            takePast(m_text.find("-->", m_at + 4), 3);
        else if (startsWith(rest(), "<![CDATA["))
            takePast(m_text.find("]]>", m_at + 9), 3);
        else if (startsWith(rest(), "<!DOCTYPE"))
            takeDocumentType();
        else if (startsWith(rest(), "<!"))
            takeUntil(nowhere);
        else
            takeTag();
    }

    void takePast(size_t mark, size_t length) { takeUntil(mark == nowhere ? nowhere : mark + length); }

    /// Where one of `marks` comes next, text in double quotes left out.
    size_t findUnquotedOf(std::string_view marks, size_t at) const
    {
        while (at < m_text.size() && marks.find(m_text[at]) == nowhere) {
            if (m_text[at] == '"')
                at = m_text.find('"', at + 1);
            at = at == nowhere ? nowhere : at + 1;
        }
        return at < m_text.size() ? at : nowhere;
    }

    size_t findUnquoted(std::string_view mark, size_t at) const
    {
        do
            at = findUnquotedOf(mark.substr(0, 1), at);
        while (at != nowhere && !startsWith(m_text.substr(at), mark) && ++at != nowhere);
        return at;
    }

    void takeDocumentType()
    {
        const size_t end = findUnquotedOf("[>", m_at);
        if (end != nowhere && m_text[end] == '[')
            takePast(findUnquoted("]>", end), 2);
        else
            takePast(end, 1);
    }

    void takeTag()
    {
        const std::string_view name = m_text.substr(m_at, m_text.find_first_of(" \t\r\n<>", m_at + 1) - m_at).substr(1);
        const size_t end = findUnquotedOf("<>", m_at + 1 + name.size());
        if (end == nowhere || m_text[end] == '<') {
            takeUntil(nowhere);
            return;
        }
        takeUntil(end + 1);
        const bool isEmpty = m_text[end - 1] == '/';
        m_element = isEmpty ? std::string_view() : name;
        if (isEmpty)
            return;
        if (name == "array" || name == "dict")
            m_harmless = ++m_depth <= maxDepth;
        else if ((name == "/array" || name == "/dict") && m_depth > 0)
            --m_depth;
    }

    const std::string_view m_text;
    size_t m_at = 0;
    size_t m_depth = 0;
    bool m_harmless = true;
    std::string_view m_element; ///< the name of the last tag: text and comments that follow are in it
    std::string m_out;
};

} // namespace

std::optional<std::string> harmlessXml(std::string_view text)
{
    return XmlScan(text).run();
}

} // namespace OrvCF
