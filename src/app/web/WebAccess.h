// Who may use the local web server: the random token of the printed address, in the query
// (first visit), a cookie (later page loads) or the X-Unwarp-Token header; a request that
// changes anything needs the header, which another site's page cannot set, and an Origin that
// is the server's own. With a password, every request also carries it by HTTP basic auth.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace app::web {

inline constexpr const char* kTokenHeader = "X-Unwarp-Token";
inline constexpr const char* kTokenCookie = "unwarp-token";

// 32 random bytes as 64 hex digits, from the system's random source.
std::string makeAccessToken();

// What a request shows of itself.
struct RequestCredentials {
    std::string method;
    std::optional<std::string> queryToken;
    std::optional<std::string> headerToken;
    std::optional<std::string> cookieHeader;
    std::optional<std::string> origin;
    std::optional<std::string> host;
    std::optional<std::string> authorization;
};

enum class AccessDecision {
    allowed,
    // No token or a wrong one: 403.
    noToken,
    // A state-changing request without the header or from another origin: 403.
    forged,
    // Wrong or missing password: 401 with a basic-auth challenge.
    noPassword,
};

class WebAccess {
  public:
    WebAccess(std::string token, std::optional<std::string> password);

    const std::string& token() const { return _token; }
    AccessDecision decide(const RequestCredentials& request) const;

    // GET, HEAD and OPTIONS change nothing; every other method does.
    static bool isStateChanging(std::string_view method);
    // The value of `name` in a Cookie header.
    static std::optional<std::string> cookieValue(std::string_view header, std::string_view name);

  private:
    bool tokenMatches(const std::optional<std::string>& candidate) const;
    bool passwordMatches(const std::optional<std::string>& authorization) const;

    std::string _token;
    std::optional<std::string> _password;
};

}  // namespace app::web
