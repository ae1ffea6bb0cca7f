#include "dns/message.h"

#include <gtest/gtest.h>

#include "dns/name_server.h"
#include "rows.h"

namespace quorvane {
namespace {

using namespace std::string_literals;

TEST(BuildDnsQuery, WritesOneQuestionAndBoundsTheName) {
    EXPECT_EQ(build_dns_query("a.bc.", 0xBEEF, kDnsTypeAaaa),
              "\xBE\xEF\x01\0\0\x01\0\0\0\0\0\0\x01"s + "a\x02"s + "bc\0\0\x1C\0\x01"s);
    EXPECT_FALSE(build_dns_query("a.bc", 1, 5));
    const std::string label(63, 'x');
    const std::string longest = label + "." + label + "." + label + "." + label.substr(2);
    EXPECT_EQ(encode_dns_name(longest + ".")->size(), 255U);
    for (const std::string& bad : {label + "x", longest + "x", "a.."s, "."s, "a..b"s}) {
        EXPECT_FALSE(encode_dns_name(bad)) << bad;
    }
}

// A response to identifier 1 with these counts; one question "a" stands at offset 12.
const std::string kQuestion = "\1a\0\0\x01\0\x01"s;
std::string head(const std::string& flags, int questions, int answers) {
    return "\0\x01"s + flags + '\0' + static_cast<char>(questions) +
           static_cast<char>(answers / 256) + static_cast<char>(answers % 256) + "\0\0\0\0"s;
}
std::string record(const std::string& name, char type, const std::string& data, char in = '\1') {
    return name + '\0' + type + '\0' + in + "\0\0\0\x3C\0"s + static_cast<char>(data.size()) + data;
}

// Flags and counts that are refused are the fuzz target's.
TEST(ParseDnsResponse, TakesAddressesByTheirOwnType) {
    const std::string good = head("\x81\x80", 1, 1) + kQuestion;
    const std::string pointer = "\xC0\x0C";
    const std::string four = record(pointer, kDnsTypeA, "\x0A\0\0\x02"s);
    const std::string six =
        record(pointer, kDnsTypeAaaa, "\x20\x01\x0D\xB8\0\0\0\0\0\0\0\0\0\0\0\x01"s);
    std::string labels126;
    for (int i = 0; i < 126; ++i) labels126 += "\x01x";
    // The row's name and its datagram; the addresses.
    const std::pair<std::pair<const char*, std::string>, const char*> cases[] = {
        {{"truncated, an alias, in their order",
          head("\x83\x80", 1, 4) + kQuestion + record(pointer, 5, "\1b\0"s) + four + six + four},
         "10.0.0.2 2001:db8:0:0:0:0:0:1 10.0.0.2 "},
        {{"no question, bytes after the end",
          head("\x80\0"s, 0, 1) + record("\0"s, kDnsTypeA, "\1\2\3\4") + "z"},
         "1.2.3.4 "},
        {{"class CH", good + record(pointer, kDnsTypeA, "\1\2\3\4", 3)}, ""},
        {{"A of 16 bytes", good + record(pointer, kDnsTypeA, std::string(16, 'x'))}, ""},
        {{"AAAA of 4 bytes", good + record(pointer, kDnsTypeAaaa, "\1\2\3\4")}, ""},
        {{"16 questions", head("\x81\x80", 16, 0) + std::string(80, '\0')}, ""},
        {{"256 answers", head("\x81\x80", 0, 256) + std::string(2816, '\0')}, ""},
        {{"126 steps", good + record(labels126 + "\0"s, kDnsTypeA, "\1\2\3\4")}, "1.2.3.4 "},
        {{"pointer to itself", good + record("\xC0\x13", kDnsTypeA, "\1\2\3\4")}, "refused"},
        {{"pointer past the end", good + record("\xFF\xFF", kDnsTypeA, "\1\2\3\4")}, "refused"},
        {{"label of type 01", good + record("\x40" + std::string(65, '\0'), 1, "1234")}, "refused"},
        {{"127 steps, the last a pointer", good + record(labels126 + pointer, 1, "1234")},
         "refused"}};
    expect_rows(cases, [](const auto& input) {
        const DnsAnswer got = parse_dns_response(input.second, 1);
        EXPECT_EQ(got.error, got.ok ? 0 : -EBADMSG);
        std::string shown = got.ok ? "" : "refused";
        for (const std::string& address : got.addresses) shown += address + " ";
        return shown;
    });
}

TEST(ChooseNameServer, TakesTheFirstUsableLine) {
    const std::pair<std::string_view, const char*> cases[] = {
        {"# x\nsearch a\nnameserver ::1\nnameserver 10.0.0.4\nnameserver 10.0.0.3", "10.0.0.4"},
        {"nameserver 10.0.0.5\r\n", "10.0.0.5"},
        {" nameserver 10.0.0.2\nnameserver\t10.0.0.2\nNameserver 10.0.0.2\nnameserver  10.0.0.2\n"
         "nameserver 10.0.0.2 \nnameserver 10.0.0.2:53\nnameserver 10.0.0.2\r\r\n",
         "127.0.0.53"}};
    expect_rows(cases, choose_name_server);
}

}  // namespace
}  // namespace quorvane
