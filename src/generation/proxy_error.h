#pragma once

#include <stdexcept>
#include <string>

namespace lumivesper::generation {

// A failure of a request through our server's proxy; what() is the user-facing description.
class ProxyError : public std::runtime_error {
public:
    enum class Case {
        serverError,
        invalidURL,
        invalidResponse,
        unauthorized,
        invalidImageResponse
    };

    static ProxyError serverError(long status, std::string body);
    static ProxyError invalidURL();
    static ProxyError invalidResponse();
    static ProxyError unauthorized();
    static ProxyError invalidImageResponse();

    Case kind() const { return kind_; }
    long status() const { return status_; }           // of serverError
    const std::string& body() const { return body_; } // of serverError, whole
    std::string description() const { return what(); }

private:
    ProxyError(Case kind, long status, std::string body, const std::string& description);

    Case kind_;
    long status_;
    std::string body_;
};

} // namespace lumivesper::generation
