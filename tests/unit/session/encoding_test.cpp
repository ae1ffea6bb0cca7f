#include "session/encoding.h"

#include <gtest/gtest.h>

#include "session/sha256.h"

namespace quorvane {
namespace {

std::span<const std::uint8_t> bytes_of(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

// The examples of FIPS 180-4 and lengths around the two ends of the padding, the expected digests
// taken from an independent implementation.
TEST(Sha256, MatchesKnownDigests) {
    const struct {
        std::string message;
        const char* digest;
    } cases[] = {
        {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {std::string(55, 'a'), "9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"},
        {std::string(56, 'a'), "b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"},
        {std::string(63, 'a'), "7d3e74a05d7db15bce4ad9ec0658ea98e3f06eeecf16b4c6fff2da457ddc2f34"},
        {std::string(64, 'a'), "ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"},
        {std::string(119, 'a'), "31eba51c313a5c08226adf18d4a359cfdfd8d2e816b13f4af952f7ea6584dcfb"},
        {std::string(120, 'a'), "2f3d335432c70b580af0e8e1b3674a7c020d683aa5f73aaaedfdc55af904c21c"},
        {std::string(1'000'000, 'a'),
         "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(hex_lower(sha256(c.message)), c.digest) << c.message.size() << " bytes";
    }
}

// RFC 4648 section 10, without the padding, and the two letters that differ from plain base64.
TEST(Base64Url, MatchesRfc4648) {
    const struct {
        std::string_view bytes;
        const char* text;
    } cases[] = {{"", ""},
                 {"f", "Zg"},
                 {"fo", "Zm8"},
                 {"foo", "Zm9v"},
                 {"foob", "Zm9vYg"},
                 {"foobar", "Zm9vYmFy"},
                 {"\xfb\xff\xfe", "-__-"}};
    for (const auto& c : cases) EXPECT_EQ(base64url(bytes_of(c.bytes)), c.text);
}

// The example of RFC 7636 appendix B.
TEST(PkceChallenge, MatchesRfc7636) {
    EXPECT_EQ(pkce_challenge("dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"),
              "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM");
}

TEST(RandomToken, IsFreshHex) {
    const std::string token = random_token();
    EXPECT_EQ(token.size(), 48U);
    EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_NE(token, random_token());
}

}  // namespace
}  // namespace quorvane
