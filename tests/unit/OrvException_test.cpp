#include "OrvException.h"

#include <exception>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

namespace {

std::string messageFor(const std::string& text)
{
    return SqliteException(1, text.c_str()).getMessage();
}

int codeFor(long code)
{
    return SqliteException(code, "").getErrorCode();
}

/// The place of a virtual operation in the table of the class, whose first two places are the destructors'.
template <class Operation> std::size_t slotOf(Operation operation)
{
    std::size_t offset
        = 0; // the language's binary interface keeps it in the pointer to member, on some machines with bit 0
    std::memcpy(&offset, &operation, sizeof offset);
    return offset / sizeof(void*);
}

TEST(OrvException, CarriesMessageAndCode)
{
    SqliteException failure(401, "Data not found");
    EXPECT_STREQ("Data not found", failure.getMessage());
    EXPECT_EQ(401, failure.getErrorCode());
}

TEST(OrvException, GivesBothToAHandlerByConstReference)
{
    try {
        throw SqliteException(8, "Database: Write failed");
    } catch (const OrvException& failure) {
        EXPECT_STREQ("Database: Write failed", failure.getMessage());
        EXPECT_EQ(8, failure.getErrorCode());
    }
}

TEST(OrvException, KeepsThe4095FirstCharactersOfAMessage)
{
    const std::string longest(4095, 'm');
    EXPECT_EQ(longest, messageFor(longest));
    EXPECT_EQ(longest, messageFor(longest + "e"));
    EXPECT_EQ(longest, messageFor(longest + std::string(10000, 'e')));
}

TEST(OrvException, KeepsEmptyMessagesAndPercentSigns)
{
    EXPECT_EQ("", messageFor(""));
    EXPECT_EQ("100%s of %d%%", messageFor("100%s of %d%%"));
}

TEST(OrvException, KeepsTheLow32BitsOfACode)
{
    EXPECT_EQ(401, codeFor(0x100000191));
    EXPECT_EQ(-1, codeFor(0xffffffff));
    EXPECT_EQ(INT32_MIN, codeFor(0x780000000));
    EXPECT_EQ(0, codeFor(0x7fffffff00000000));
    EXPECT_EQ(-5, codeFor(-5));
}

TEST(OrvException, IsCaughtAsItsOwnTypeAndAsItsBases)
{
    EXPECT_THROW(throw SqliteException(1, "text"), SqliteException);
    EXPECT_THROW(throw SqliteException(1, "text"), OrvException);
    EXPECT_THROW(throw SqliteException(1, "text"), std::exception);
}

TEST(OrvException, InheritsWhatFromStdException)
{
    const SqliteException failure(1, "text");
    EXPECT_STREQ(std::exception().what(), failure.what());
}

TEST(OrvException, HoldsItsMessageItself)
{
    SqliteException failure(1, "text");
    const auto begin = reinterpret_cast<std::uintptr_t>(&failure);
    const auto message = reinterpret_cast<std::uintptr_t>(failure.getMessage());
    EXPECT_EQ(begin + sizeof(std::exception), message);
    EXPECT_LE(message + 4096 + sizeof(std::int32_t), begin + sizeof failure);
    std::int32_t code = 0; // it follows the message
    std::memcpy(&code, failure.getMessage() + 4096, sizeof code);
    EXPECT_EQ(failure.getErrorCode(), code);
}

TEST(OrvException, ACopyOutlivesTheOriginal)
{
    auto original = std::make_unique<SqliteException>(7, "no memory");
    SqliteException copy(*original);
    original.reset();
    EXPECT_STREQ("no memory", copy.getMessage());
    EXPECT_EQ(7, copy.getErrorCode());
}

TEST(OrvException, SqliteExceptionAddsNoField)
{
    EXPECT_EQ(sizeof(OrvException), sizeof(SqliteException));
}

TEST(OrvException, GetMessageAndGetErrorCodeFollowWhat)
{
    EXPECT_TRUE(std::has_virtual_destructor_v<OrvException>);
    EXPECT_EQ(2U, slotOf(&std::exception::what));
    EXPECT_EQ(3U, slotOf<char* (OrvException::*)()>(&OrvException::getMessage));
    EXPECT_EQ(4U, slotOf<int (OrvException::*)()>(&OrvException::getErrorCode));
}

/// Overrides what it can: the operations that are not virtual stay those of the base class.
class Overriding : public OrvException {
public:
    Overriding()
        : OrvException(1, "base")
    {
    }
    char* getMessage() override { return m_text; }
    int getErrorCode() override { return 2; }

private:
    char m_text[5] = "mine";
};

TEST(OrvException, OverloadsForConstReferencesAreNotInTheVirtualTable)
{
    Overriding failure;
    OrvException& base = failure;
    EXPECT_STREQ("mine", base.getMessage());
    EXPECT_EQ(2, base.getErrorCode());
    const OrvException& constant = failure;
    EXPECT_STREQ("base", constant.getMessage());
    EXPECT_EQ(1, constant.getErrorCode());
}

} // namespace
