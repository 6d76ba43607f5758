// The shared base64 routines against RFC 4648's test vectors and binary data.
#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "net/Base64.h"

namespace {

std::string encode(const std::string& data)
{
    char* out = nullptr;
    const int length = base64_encode(data.data(), unsigned(data.size()), &out);
    EXPECT_GE(length, 0);
    std::string result(out, size_t(length));
    EXPECT_EQ('\0', out[length]);
    std::free(out);
    return result;
}

// The decoded bytes, or "<refused>" (with no buffer handed out).
std::string decode(const std::string& text)
{
    char* out = nullptr;
    const int length = base64_decode(text.data(), unsigned(text.size()), &out);
    if (length < 0) {
        EXPECT_EQ(nullptr, out);
        return "<refused>";
    }
    std::string data(out, size_t(length));
    std::free(out);
    return data;
}

}  // namespace

// RFC 4648's vectors both ways; every byte value round-trips at every length
// modulo 3; line breaks are skipped, the pad ends the data, and the URL-safe
// alphabet is not this one.
TEST(Base64, VectorsBinaryRoundTripLineBreaksAndForeignCharacters)
{
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"user:pass", "dXNlcjpwYXNz"},
        {"\xfb\xff", "+/8="},  // the last two alphabet characters
    };
    for (const auto& [plain, encoded] : vectors) {
        EXPECT_EQ(encoded, encode(plain));
        EXPECT_EQ(plain, decode(encoded));
    }
    std::mt19937 random(7);
    for (int length = 0; length < 300; ++length) {
        std::string data(size_t(length), '\0');
        for (char& c : data)
            c = char(random());
        EXPECT_EQ(data, decode(encode(data)));
    }
    const std::pair<const char*, const char*> decodedOnly[] = {
        {"Zm9v\r\nYmFy", "foobar"}, {"Zm8=trailing", "fo"}, {"Zm9v!", "<refused>"}, {"Zm-_", "<refused>"}};
    for (const auto& [text, plain] : decodedOnly)
        EXPECT_EQ(plain, decode(text)) << text;
}
