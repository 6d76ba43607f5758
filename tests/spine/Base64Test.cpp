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

bool decode(const std::string& text, std::string* data)
{
    char* out = nullptr;
    const int length = base64_decode(text.data(), unsigned(text.size()), &out);
    if (length < 0) {
        EXPECT_EQ(nullptr, out);
        return false;
    }
    data->assign(out, size_t(length));
    std::free(out);
    return true;
}

}  // namespace

TEST(Base64, Rfc4648Vectors)
{
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [plain, encoded] : vectors) {
        EXPECT_EQ(encoded, encode(plain));
        std::string decoded;
        ASSERT_TRUE(decode(encoded, &decoded));
        EXPECT_EQ(plain, decoded);
    }
    EXPECT_EQ("dXNlcjpwYXNz", encode("user:pass"));
    EXPECT_EQ("+/8=", encode("\xfb\xff"));  // the last two alphabet characters
}

TEST(Base64, BinaryRoundTrip)
{
    std::mt19937 random(7);
    for (int length = 0; length < 300; ++length) {
        std::string data(size_t(length), '\0');
        for (char& c : data)
            c = char(random());
        std::string decoded;
        ASSERT_TRUE(decode(encode(data), &decoded));
        EXPECT_EQ(data, decoded);
    }
}

TEST(Base64, DecodingToleratesLineBreaksAndRejectsForeignCharacters)
{
    std::string decoded;
    ASSERT_TRUE(decode("Zm9v\r\nYmFy", &decoded));
    EXPECT_EQ("foobar", decoded);
    ASSERT_TRUE(decode("Zm8=trailing", &decoded));  // the pad ends the data
    EXPECT_EQ("fo", decoded);
    EXPECT_FALSE(decode("Zm9v!", &decoded));
    EXPECT_FALSE(decode("Zm-_", &decoded));  // the URL-safe alphabet is not this one
}
