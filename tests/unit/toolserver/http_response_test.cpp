#include "toolserver/http_response.h"

#include "common/product_names.h"
#include "support/testing.h"

namespace media::win::chrome_inspect {
namespace {

const std::string cors =
    "Access-Control-Allow-Origin: chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc\r\n"
    "Vary: Origin\r\nAccess-Control-Allow-Methods: GET, POST, OPTIONS\r\n"
    "Access-Control-Allow-Headers: Content-Type, X-Morva-Session\r\n";

TEST(CorsHeaders, AreForTheExtensionAlone) {
  const std::string origin(extensionOrigin);
  EXPECT_EQ(origin.size(), 51U);
  EXPECT_EQ(corsHeaders(origin), cors);
  for (const std::string& other :
       {std::string(), std::string("null"), origin + "/", origin + "\r\nX: y", " " + origin,
        origin.substr(1), "Chrome" + origin.substr(6)}) {
    EXPECT_EQ(corsHeaders(other), "") << other;
  }
}

TEST(JsonResponse, IsWrittenByteForByte) {
  const HttpResponse plain = jsonResponse(400, "Bad Request", "{}", "");
  EXPECT_EQ(plain.head,
            "HTTP/1.1 400 Bad Request\r\nContent-Type: application/json\r\n"
            "Content-Length: 2\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(plain.body, "{}");
  EXPECT_EQ(jsonResponse(204, "No Content", "", extensionOrigin).head,
            "HTTP/1.1 204 No Content\r\nContent-Type: application/json\r\n" + cors +
                "Content-Length: 0\r\nConnection: close\r\n\r\n");
}

TEST(FileResponse, IsWrittenByteForByte) {
  const HttpResponse response = fileResponse("image/png", std::string(3, '\0'), extensionOrigin);
  EXPECT_EQ(response.head, "HTTP/1.1 200 OK\r\nContent-Type: image/png\r\n" + cors +
                               "Cache-Control: no-store\r\nContent-Length: 3\r\n"
                               "Connection: close\r\n\r\n");
  EXPECT_EQ(response.body, std::string(3, '\0'));
}

}  // namespace
}  // namespace media::win::chrome_inspect
