// Which site a request comes from.
#include <gtest/gtest.h>
#include <tarn.hpp>

#include <initializer_list>
#include <string>
#include <string_view>

#include "support/script.h"

namespace {

using tarn_test::Variables;
using tarn_test::withEnvironment;

// A POST that reached https://example.org, with these headers too.
Variables sent(std::initializer_list<Variables::value_type> headers) {
  Variables all = headers;
  all.insert({{"REQUEST_METHOD", "POST"}, {"HTTPS", "on"}, {"HTTP_HOST", "example.org"}});
  return all;
}

void expect(bool expected, const Variables &variables) {
  std::string description;
  for (const auto &[name, value] : variables) description += name + "=" + value + " ";
  withEnvironment(variables, [&] { EXPECT_EQ(expected, tarn::same_origin()) << description; });
}

void expectOf(std::string_view own, bool expected, const Variables &variables) {
  withEnvironment(variables, [&] { EXPECT_EQ(expected, tarn::same_origin(own)) << own; });
}

TEST(SameOrigin, BelievesSecFetchSite) {
  expect(true, sent({{"HTTP_SEC_FETCH_SITE", "same-origin"}}));
  for (const char *site : {"same-site", "cross-site", "none"}) {
    expect(false, sent({{"HTTP_SEC_FETCH_SITE", site}}));
  }
}

TEST(SameOrigin, AllowsTypedAddressesToReadOnly) {
  for (const char *method : {"GET", "HEAD"}) {
    expect(true, sent({{"HTTP_SEC_FETCH_SITE", "none"}, {"REQUEST_METHOD", method}}));
    expect(true, sent({{"HTTP_SEC_FETCH_SITE", "same-origin"}, {"REQUEST_METHOD", method}}));
    expect(false, sent({{"HTTP_SEC_FETCH_SITE", "same-site"}, {"REQUEST_METHOD", method}}));
    expect(false, sent({{"HTTP_SEC_FETCH_SITE", "cross-site"}, {"REQUEST_METHOD", method}}));
  }
  for (const char *method : {"", "get", "Get", "PUT", "DELETE", "PATCH", "OPTIONS", "GETS"}) {
    expect(false, sent({{"HTTP_SEC_FETCH_SITE", "none"}, {"REQUEST_METHOD", method}}));
  }
  withEnvironment({{"HTTP_SEC_FETCH_SITE", "none"}}, [] { EXPECT_FALSE(tarn::same_origin()); });
}

TEST(SameOrigin, RefusesAnyOtherSecFetchSite) {
  for (const char *site :
       {"Same-Origin", "SAME-ORIGIN", "same-origin ", " same-origin", "\"same-origin\"",
        "same-origin, same-origin", "same-origin,cross-site", "cross-site, same-origin",
        "same-origin;a", "same_origin", "same-originx", "same-origi", "NONE", "?1", " ", ","}) {
    expect(false, sent({{"HTTP_SEC_FETCH_SITE", site}}));
    expect(false, sent({{"HTTP_SEC_FETCH_SITE", site}, {"HTTP_ORIGIN", "https://example.org"}}));
  }
}

TEST(SameOrigin, PrefersSecFetchSiteToOrigin) {
  expect(true,
         sent({{"HTTP_SEC_FETCH_SITE", "same-origin"}, {"HTTP_ORIGIN", "https://other.org"}}));
  expect(false,
         sent({{"HTTP_SEC_FETCH_SITE", "cross-site"}, {"HTTP_ORIGIN", "https://example.org"}}));
  expect(true, sent({{"HTTP_SEC_FETCH_SITE", ""}, {"HTTP_ORIGIN", "https://example.org"}}));
}

TEST(SameOrigin, RefusesWhatSendsNeitherHeader) {
  expect(false, sent({}));
  expect(false, sent({{"REQUEST_METHOD", "GET"}}));
  expect(false, sent({{"HTTP_REFERER", "https://example.org/"}}));
  expect(false, sent({{"HTTP_SEC_FETCH_SITE", ""}, {"HTTP_ORIGIN", ""}}));
}

TEST(SameOrigin, ComparesSchemeHostAndPortOfOrigin) {
  expect(true, sent({{"HTTP_ORIGIN", "https://example.org"}}));
  for (const char *origin : {"null",
                             "http://example.org",
                             "https://example.com",
                             "https://www.example.org",
                             "https://example.org.evil.net",
                             "https://evilexample.org",
                             "https://example.org:8443",
                             "https://example.org:80",
                             "https://example.or",
                             "https://example.org.",
                             "https://example.org/",
                             "https://example.org:",
                             "https://example.org@evil.net",
                             "https://a@example.org",
                             "https:/example.org",
                             "https:example.org",
                             "//example.org",
                             "example.org",
                             "https://",
                             "https://:443",
                             "https://example.org, https://example.org",
                             "https://example.org https://example.org",
                             "https://example.org,null",
                             " ",
                             "on",
                             "https://example.org ",
                             " https://example.org",
                             "https://example.org:443:443",
                             "https://example.org#",
                             "https://example.org?",
                             "httpss://example.org",
                             "ftp://example.org",
                             "file://example.org",
                             "https:\\\\example.org"}) {
    expect(false, sent({{"HTTP_ORIGIN", origin}}));
  }
}

TEST(SameOrigin, IgnoresCaseAndDefaultPorts) {
  for (const char *origin : {"https://example.org", "https://EXAMPLE.org", "HTTPS://Example.Org",
                             "https://example.org:443"}) {
    for (const char *host : {"example.org", "example.org:443", "Example.ORG", "EXAMPLE.ORG:443"}) {
      expect(true, sent({{"HTTP_ORIGIN", origin}, {"HTTP_HOST", host}}));
    }
    expect(false, sent({{"HTTP_ORIGIN", origin}, {"HTTP_HOST", "example.org:80"}}));
  }
  expect(true, sent({{"HTTP_ORIGIN", "http://example.org"}, {"HTTPS", ""}}));
  expect(true, sent({{"HTTP_ORIGIN", "http://example.org:80"}, {"HTTPS", "off"}}));
  expect(true, sent({{"HTTP_ORIGIN", "http://example.org"},
                     {"HTTP_HOST", "example.org:80"},
                     {"HTTPS", ""}}));
  expect(false, sent({{"HTTP_ORIGIN", "http://example.org:443"}, {"HTTPS", ""}}));
}

TEST(SameOrigin, ComparesOtherPorts) {
  for (const char *host : {"example.org:8443", "[2001:db8::1]:8443", "192.0.2.1:8443", "[::80]"}) {
    const std::string origin = std::string("https://") + host;
    expect(true, sent({{"HTTP_ORIGIN", origin}, {"HTTP_HOST", host}}));
    expect(false, sent({{"HTTP_ORIGIN", origin + "0"}, {"HTTP_HOST", host}}));
    expect(false, sent({{"HTTP_ORIGIN", "http" + origin.substr(5)}, {"HTTP_HOST", host}}));
  }
  expect(false, sent({{"HTTP_ORIGIN", "https://example.org"}, {"HTTP_HOST", "example.org:8443"}}));
  expect(false, sent({{"HTTP_ORIGIN", "http://example.org:8080"}, {"HTTP_HOST", "example.org"}}));
}

TEST(SameOrigin, RefusesOriginsWithoutAHostToCompare) {
  for (const char *origin : {"https://", "https://:443", "https://example.org", "null", ""}) {
    expect(false, sent({{"HTTP_ORIGIN", origin}, {"HTTP_HOST", ""}}));
  }
  withEnvironment({{"HTTP_ORIGIN", "http://"}}, [] { EXPECT_FALSE(tarn::same_origin()); });
}

// Behind a proxy, HTTPS is not set and the Host header may be another.
TEST(SameOrigin, ComparesWithTheOriginThatIsPassed) {
  const Variables proxied = {{"REQUEST_METHOD", "POST"},
                             {"HTTP_HOST", "backend:8080"},
                             {"HTTP_ORIGIN", "https://example.org"}};
  expectOf("https://example.org", true, proxied);
  expectOf("https://example.org:443", true, proxied);
  expectOf("HTTPS://EXAMPLE.ORG", true, proxied);
  for (const char *own : {"http://example.org", "https://example.org/", "example.org", "",
                          "https://backend:8080", "null", "https://"}) {
    expectOf(own, false, proxied);
  }
  expectOf("null", false, {{"REQUEST_METHOD", "POST"}, {"HTTP_ORIGIN", "null"}});
  expectOf("", false, {{"REQUEST_METHOD", "POST"}, {"HTTP_ORIGIN", ""}});
  expectOf("https://example.org", false, {{"REQUEST_METHOD", "POST"}});
  expectOf("", true, {{"REQUEST_METHOD", "POST"}, {"HTTP_SEC_FETCH_SITE", "same-origin"}});
  expectOf("https://example.org", false, {{"HTTP_SEC_FETCH_SITE", "same-site"}});
}

}  // namespace
