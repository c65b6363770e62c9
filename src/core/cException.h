#pragma once
#include <cstdint>
#include <exception>
#include <string>

namespace Ovidane {

// Codes carried by cException.
enum : uint16_t {
    OVD_ERR_FOREIGN = 1,   // a translated failure of something outside the library
    OVD_ERR_PARAMETER = 2, // refused parameters and dimensions
    OVD_ERR_MEMORY = 4,
    OVD_ERR_CANCEL = 200,
};

// The library's own failure. what() is deliberately constant: the translation step tells
// the library's exceptions from foreign ones by exactly that text.
class cException : public std::exception {
public:
    cException(std::string where, std::string message, uint16_t code)
        : mWhere(std::move(where)), mMessage(std::move(message)), mCode(code) {}
    cException(std::string where, const char* message, uint16_t code)
        : mWhere(std::move(where)), mMessage(message ? message : ""), mCode(code) {}
    cException(const cException&) = default;
    cException& operator=(const cException&) = default;

    const char* what() const noexcept override { return "Unknown exception"; }

    const std::string& GetWhere() const { return mWhere; }
    const std::string& GetMessage() const { return mMessage; }
    uint16_t GetCode() const { return mCode; }

private:
    std::string mWhere;
    std::string mMessage;
    uint16_t mCode;
};

} // namespace Ovidane
