#include "PropertyList.h"

#include <algorithm>
#include <map>

namespace OrvCF {
namespace {

constexpr size_t maxSize = 1 << 30;

// A line of base64 fills 76 columns with its tabs, which count 8 each. It has at most 8 tabs, however deep it is.
constexpr size_t maxDataTabs = 8;
constexpr size_t dataColumns = 76;

class XmlWriter {
public:
    std::string document(const Object& list)
    {
        m_out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                "<plist version=\"1.0\">\n";
        write(list, 0);
        m_out += "</plist>\n";
        return std::move(m_out);
    }

private:
    void write(const Object& object, size_t depth)
    {
        require(m_out.size() <= maxSize);
        m_out.append(depth, '\t');
        if (const auto* string = as<OrvCFString>(object))
            writeElement("string", [&] { appendEscaped(m_out, string->units); });
        else if (const auto* number = as<OrvCFNumber>(object))
            writeNumber(number->value);
        else if (const auto* boolean = as<OrvCFBoolean>(object))
            m_out += boolean->value ? "<true/>\n" : "<false/>\n";
        else if (const auto* date = as<OrvCFDate>(object))
            writeElement("date", [&] { appendDate(m_out, date->value); });
        else if (const auto* data = as<OrvCFData>(object))
            writeData(data->bytes, depth);
        else if (const auto* array = as<OrvCFArray>(object))
            writeArray(*array, depth);
        else if (const auto* dictionary = as<OrvCFDictionary>(object))
            writeDictionary(*dictionary, depth);
        else if (const auto* uid = as<OrvCFUid>(object))
            writeUid(*uid, depth);
        else
            throw Refused();
    }

    template <class WriteText> void writeElement(const char* name, WriteText writeText)
    {
        m_out.append("<").append(name).append(">");
        writeText();
        m_out.append("</").append(name).append(">\n");
    }

    void writeNumber(const OrvCFNumber::Value& value)
    {
        if (const auto* real = std::get_if<double>(&value))
            writeElement("real", [&] { appendReal(m_out, *real); });
        else if (const auto* large = std::get_if<uint64_t>(&value))
            writeElement("integer", [&] { m_out += std::to_string(*large); });
        else
            writeElement("integer", [&] { m_out += std::to_string(std::get<int64_t>(value)); });
    }

    void writeData(std::string_view bytes, size_t depth)
    {
        const size_t tabs = std::min(depth, maxDataTabs);
        const size_t bytesOfLine = (dataColumns - 8 * tabs) / 4 * 3;
        m_out += "<data>\n";
        for (; !bytes.empty(); bytes.remove_prefix(std::min(bytes.size(), bytesOfLine))) {
            m_out.append(tabs, '\t');
            appendBase64(m_out, bytes.substr(0, bytesOfLine));
            m_out += '\n';
        }
        m_out.append(depth, '\t');
        m_out += "</data>\n";
    }

    void writeArray(const OrvCFArray& array, size_t depth)
    {
        if (array.values.empty()) {
            m_out += "<array/>\n";
            return;
        }
        m_out += "<array>\n";
        for (const auto& value : array.values)
            write(*value, depth + 1);
        m_out.append(depth, '\t');
        m_out += "</array>\n";
    }

    void writeDictionary(const OrvCFDictionary& dictionary, size_t depth)
    {
        if (dictionary.pairs.empty()) {
            m_out += "<dict/>\n";
            return;
        }
        m_out += "<dict>\n";
        std::map<std::u16string_view, const Object*> sorted; // by the UTF-16 units of the keys
        for (const auto& [key, pair] : dictionary.pairs)
            sorted.emplace(static_cast<const OrvCFString*>(key)->units, pair.value.get());
        for (const auto& [key, value] : sorted) {
            m_out.append(depth + 1, '\t');
            writeElement("key", [&, units = key] { appendEscaped(m_out, units); });
            write(*value, depth + 1);
        }
        m_out.append(depth, '\t');
        m_out += "</dict>\n";
    }

    void writeUid(const OrvCFUid& uid, size_t depth)
    {
        const std::string tabs(depth, '\t');
        m_out += "<dict>\n" + tabs + "\t<key>CF$UID</key>\n" + tabs + "\t<integer>" + std::to_string(uid.value)
            + "</integer>\n" + tabs + "</dict>\n";
    }

    std::string m_out;
};

} // namespace

std::string writtenXml(const Object& list)
{
    return XmlWriter().document(list);
}

} // namespace OrvCF
