// text_test.cpp - bounded text, numbers in text, the reader of lines, and owned descriptors, where
// a caller of the exported functions does not see them at their limits.
#include "foundation/text.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/file.h"
#include "foundation/log.h"
#include "foundation/number_reader.h"
#include "support/faults.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using tq::LineReader;
using tq::NumberReader;
using tq::TextWriter;
using tq::UniqueFd;
using tq_test::faults::Fail;

constexpr char kUntouched = '\x5a';

// What a buffer holds, from its first byte to its last.
template <size_t N>
std::string all(const std::array<char, N>& buffer) {
    return {buffer.data(), buffer.size()};
}

template <size_t N>
std::array<char, N> filled() {
    std::array<char, N> buffer{};
    buffer.fill(kUntouched);
    return buffer;
}

// TextWriter

TEST(TextWriter, StartsEmpty) {
    auto buffer = filled<4>();
    const TextWriter text(buffer);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_FALSE(text.cut());
}

TEST(TextWriter, AppendsOneTextAfterTheOther) {
    auto buffer = filled<16>();
    TextWriter text(buffer);
    text.append("%s.%s", "a", "b");
    text.append("[%d]", -7);
    text.append("%s", "");
    EXPECT_STREQ(buffer.data(), "a.b[-7]");
    EXPECT_FALSE(text.cut());
}

TEST(TextWriter, FillsItsBufferToTheLastByte) {
    auto buffer = filled<6>();
    TextWriter text({buffer.data(), 5});
    text.append("%s", "abcd");
    EXPECT_EQ(all(buffer), std::string("abcd\0\x5a", 6));
    EXPECT_FALSE(text.cut());
    text.append("%s", "");
    EXPECT_FALSE(text.cut());
}

TEST(TextWriter, CutsWhatDoesNotFitAndRemembersIt) {
    auto buffer = filled<6>();
    TextWriter text({buffer.data(), 5});
    text.append("%s", "ab");
    text.append("%s", "cde");
    EXPECT_EQ(all(buffer), std::string("abcd\0\x5a", 6));
    EXPECT_TRUE(text.cut());
    text.append("%s", "f");
    EXPECT_EQ(all(buffer), std::string("abcd\0\x5a", 6));
    EXPECT_TRUE(text.cut());
    text.append("%s", "");
    EXPECT_TRUE(text.cut());
}

TEST(TextWriter, TakesWhatCannotBeWrittenForCut) {
    auto buffer = filled<8>();
    TextWriter text(buffer);
    text.append("%s", "ab");
    text.append("%s%lc", "c", wint_t{0x7fffffff});  // no character of any locale
    EXPECT_TRUE(text.cut());
    text.append("%s", "d");
    EXPECT_STREQ(buffer.data(), "abc");
}

TEST(TextWriter, WritesOnlyTheTerminatorIntoOneByte) {
    auto buffer = filled<2>();
    TextWriter text({buffer.data(), 1});
    text.append("%s", "a");
    EXPECT_EQ(all(buffer), std::string("\0\x5a", 2));
    EXPECT_TRUE(text.cut());
}

TEST(Text, HoldsItsTextItself) {
    tq::Text<8> text;
    text.append("%u", UINT_MAX);
    EXPECT_STREQ(text.c_str(), "4294967");
    EXPECT_TRUE(text.cut());
    EXPECT_EQ(text.data(), text.c_str());
}

// copy_text

TEST(CopyText, CopiesWhatFitsAndZeroesTheRest) {
    auto buffer = filled<8>();
    tq::copy_text(buffer.data(), 7, "abc");
    EXPECT_EQ(all(buffer), std::string("abc\0\0\0\0\x5a", 8));
    buffer = filled<8>();
    tq::copy_text(buffer.data(), 4, "abc");
    EXPECT_EQ(all(buffer), std::string("abc\0\x5a\x5a\x5a\x5a", 8));
    buffer = filled<8>();
    tq::copy_text(buffer.data(), 3, "abc");
    EXPECT_EQ(all(buffer), std::string("ab\0\x5a\x5a\x5a\x5a\x5a", 8));
    buffer = filled<8>();
    tq::copy_text(buffer.data(), 1, "abc");
    EXPECT_EQ(all(buffer), std::string("\0\x5a\x5a\x5a\x5a\x5a\x5a\x5a", 8));
}

// leading_int

TEST(LeadingInt, ReadsWhatTheTextStartsWith) {
    EXPECT_EQ(tq::leading_int("42"), 42);
    EXPECT_EQ(tq::leading_int(" \t\n-42x"), -42);
    EXPECT_EQ(tq::leading_int("+7"), 7);
    EXPECT_EQ(tq::leading_int("0x1f"), 0);
    EXPECT_EQ(tq::leading_int("2147483647"), INT_MAX);
    EXPECT_EQ(tq::leading_int("-2147483648"), INT_MIN);
}

TEST(LeadingInt, KeepsTheLowThirtyTwoBits) {
    EXPECT_EQ(tq::leading_int("2147483648"), INT_MIN);
    EXPECT_EQ(tq::leading_int("4294967295"), -1);
    EXPECT_EQ(tq::leading_int("4294967296"), 0);
    EXPECT_EQ(tq::leading_int("-4294967295"), 1);
    EXPECT_EQ(tq::leading_int("1311768467463790320"), static_cast<int>(0x9abcdef0));
}

TEST(LeadingInt, IsZeroWhereTheTextStartsWithNone) {
    for (const char* text : {"", " ", "x1", "-", "+", "- 1", "--1", "=1"}) {
        EXPECT_EQ(tq::leading_int(text), 0) << text;
        EXPECT_FALSE(tq::starts_with_int(text)) << text;
    }
    for (const char* text : {"0", " \t\n-42x", "+7", "99999999999999999999"})
        EXPECT_TRUE(tq::starts_with_int(text)) << text;
}

// NumberReader

template <typename Number>
std::optional<Number> number(const char* text) {
    Number value = 0;
    return NumberReader(text).number(value) ? std::optional(value) : std::nullopt;
}

TEST(NumberReader, StepsOverBlanksASignAndTheDigits) {
    NumberReader reader(" \t\n\v\f\r+42 007.-0x");
    uint32_t value = 0;
    EXPECT_TRUE(reader.number(value));
    EXPECT_EQ(value, 42U);
    EXPECT_FALSE(reader.literal('.'));
    EXPECT_TRUE(reader.literal(' '));
    uint64_t wide = 0;
    EXPECT_TRUE(reader.number(wide));
    EXPECT_EQ(wide, 7U);
    EXPECT_TRUE(reader.literal('.'));
    int32_t number = -5;
    EXPECT_TRUE(reader.number(number));
    EXPECT_EQ(number, 0);
    EXPECT_EQ(reader.word(), "x");
}

TEST(NumberReader, FindsNoNumber) {
    for (const char* text :
         {"", " ", "x1", "-", "+", "- 1", "--1", "+-1", "/", ":", "\b1", "\0161"}) {
        EXPECT_EQ(number<uint32_t>(text), std::nullopt) << text;
        EXPECT_EQ(number<uint64_t>(text), std::nullopt) << text;
        EXPECT_EQ(number<int32_t>(text), std::nullopt) << text;
    }
}

TEST(NumberReader, WrapsASignAroundAndStopsAtTheLargestNumber) {
    EXPECT_EQ(number<uint32_t>("4294967295"), UINT32_MAX);
    EXPECT_EQ(number<uint32_t>("4294967296"), UINT32_MAX);
    EXPECT_EQ(number<uint32_t>("18446744073709551616"), UINT32_MAX);
    EXPECT_EQ(number<uint32_t>("-4294967295"), 1U);
    EXPECT_EQ(number<uint32_t>("-4294967296"), UINT32_MAX);
    EXPECT_EQ(number<uint64_t>("18446744073709551615"), UINT64_MAX);
    EXPECT_EQ(number<uint64_t>("18446744073709551616"), UINT64_MAX);
    EXPECT_EQ(number<uint64_t>("18446744073709551620"), UINT64_MAX);
    EXPECT_EQ(number<uint64_t>("-18446744073709551615"), 1U);
    EXPECT_EQ(number<uint64_t>("-18446744073709551616"), UINT64_MAX);
}

TEST(NumberReader, TakesAnIntWrittenWithoutItsSign) {
    EXPECT_EQ(number<int32_t>("2147483648"), INT_MIN);
    EXPECT_EQ(number<int32_t>("4294967295"), -1);
    EXPECT_EQ(number<int32_t>("-4294967295"), 1);
    for (const char* text : {"4294967296", "-4294967296", "18446744073709551616"})
        EXPECT_EQ(number<int32_t>(text), std::nullopt) << text;
}

std::optional<uint32_t> number_up_to(uint32_t most, const char* text) {
    uint32_t value = 0;
    return NumberReader(text).number_up_to(most, value) ? std::optional(value) : std::nullopt;
}

TEST(NumberReader, TakesNoNumberBeyondALimitOrBelowZero) {
    EXPECT_EQ(number_up_to(32, "32"), 32U);
    EXPECT_EQ(number_up_to(32, "-0"), 0U);
    for (const char* text : {"33", "-1", "4294967296", "18446744073709551616", ""})
        EXPECT_EQ(number_up_to(32, text), std::nullopt) << text;
}

// printable

TEST(Printable, ShowsAMissingText) {
    EXPECT_STREQ(tq::printable("text"), "text");
    EXPECT_STREQ(tq::printable(""), "");
    EXPECT_STREQ(tq::printable(nullptr), "(null)");
}

// LineReader

class Pipe {
  public:
    Pipe() {
        if (pipe2(ends_.data(), O_CLOEXEC) != 0) ends_.fill(-1);
    }
    ~Pipe() {
        close(ends_[0]);
        hang_up();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    [[nodiscard]] int reading_end() const { return ends_[0]; }

    void send(const std::string& text) const {
        EXPECT_EQ(write(ends_[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    void hang_up() {
        if (ends_[1] >= 0) close(ends_[1]);
        ends_[1] = -1;
    }

  private:
    std::array<int, 2> ends_{};
};

std::vector<std::string> remaining_lines(LineReader& lines) {
    std::vector<std::string> all_lines;
    while (const char* line = lines.next())
        all_lines.emplace_back(line);
    return all_lines;
}

TEST(LineReader, JoinsWhatComesByteByByte) {
    Pipe pipe;
    std::jthread writer([&pipe] {
        for (const char byte : std::string("one\n\ntwo\nend")) {
            pipe.send(std::string(1, byte));
            usleep(200);
        }
        pipe.hang_up();
    });
    LineReader lines(pipe.reading_end());
    EXPECT_THAT(remaining_lines(lines), ElementsAre("one\n", "\n", "two\n", "end"));
}

TEST(LineReader, SplitsALongLineAfterEveryThousandTwentyThreeBytes) {
    for (const size_t length : {1022U, 1023U, 1024U, 2045U, 2046U, 2047U, 9000U}) {
        SCOPED_TRACE(length);
        Pipe pipe;
        const std::string line = std::string(length, 'x') + "\n";
        pipe.send(line + "next\n");
        pipe.hang_up();
        std::vector<std::string> expected;
        for (size_t at = 0; at < line.size(); at += 1023)
            expected.push_back(line.substr(at, 1023));
        expected.emplace_back("next\n");
        LineReader lines(pipe.reading_end());
        EXPECT_EQ(remaining_lines(lines), expected);
    }
}

// What is left of a read then leaves less room than the next one could fill.
TEST(LineReader, JoinsALongPieceOfTwoReads) {
    Pipe pipe;
    pipe.send(std::string(5000, 'x') + "\n" + std::string(20000, 'y') + "\nend");
    pipe.hang_up();
    LineReader lines(pipe.reading_end(), LineReader::kLongPiece);
    const std::string long_piece(4095, 'y');
    EXPECT_THAT(
        remaining_lines(lines),
        ElementsAre(std::string(4095, 'x'), std::string(905, 'x') + "\n", long_piece, long_piece,
                    long_piece, long_piece, std::string(3620, 'y') + "\n", "end"));
}

TEST(LineReader, GivesALineBeforeTheNextOneComes) {
    Pipe pipe;
    pipe.send("one\ntw");
    LineReader lines(pipe.reading_end());
    EXPECT_STREQ(lines.next(), "one\n");
    pipe.send("o\n");
    EXPECT_STREQ(lines.next(), "two\n");
    pipe.hang_up();
    EXPECT_EQ(lines.next(), nullptr);
    EXPECT_EQ(lines.next(), nullptr);
}

TEST(LineReader, EndsWhereReadingFails) {
    Pipe pipe;
    pipe.send("one\ntwo");
    const Fail fail("read", 2);
    LineReader lines(pipe.reading_end());
    EXPECT_STREQ(lines.next(), "one\n");
    EXPECT_STREQ(lines.next(), "two");
    EXPECT_TRUE(fail.fired());
    pipe.send("three\n");
    EXPECT_EQ(lines.next(), nullptr);
    EXPECT_TRUE(lines.failed());
}

TEST(LineReader, GivesNothingOfADescriptorThatIsNone) {
    LineReader lines(-1);
    EXPECT_THAT(remaining_lines(lines), IsEmpty());
}

// UniqueFd

TEST(UniqueFd, ClosesTheLowestDescriptorToo) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    { const UniqueFd lowest(open("/dev/null", O_RDONLY | O_CLOEXEC)); }
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1);
    EXPECT_EQ(dup2(input, STDIN_FILENO), STDIN_FILENO);
    close(input);
}

TEST(UniqueFd, LeavesTheReasonForWhichThereIsNone) {
    errno = ENOENT;
    { const UniqueFd none(-1); }
    EXPECT_EQ(errno, ENOENT);
}

// ReadSome

void note_alarm(int) {}

TEST(ReadSome, GoesOnAfterASignal) {
    struct sigaction action {};
    action.sa_handler = note_alarm;
    struct sigaction before {};
    ASSERT_EQ(sigaction(SIGALRM, &action, &before), 0);
    Pipe pipe;
    const pthread_t reader = pthread_self();
    std::jthread writer([&] {
        usleep(5000);
        pthread_kill(reader, SIGALRM);
        usleep(5000);
        pipe.send("abc");
    });
    std::array<char, 8> buffer{};
    EXPECT_EQ(tq::read_some(pipe.reading_end(), buffer.data(), buffer.size()), 3);
    EXPECT_STREQ(buffer.data(), "abc");
    writer.join();
    sigaction(SIGALRM, &before, nullptr);
}

}  // namespace
