#include <gtest/gtest.h>

#include "support/http_outcome.h"

// Answers that the client of the twin takes apart itself. On Windows the system does that, and Wine
// does not do it well for every cut of the bytes.
namespace media::win::chrome_inspect {
namespace {

const std::string okHead = "HTTP/1.1 200 OK\r\n";
const std::string chunkedHead = okHead + "Transfer-Encoding: chunked\r\n\r\n";

const HttpAnswerCase answerCases[] = {
    {"chunks", chunkedHead + "5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n", true, 200, true,
     "hello world"},
    {"no chunks", chunkedHead + "0\r\n\r\n", true, 200, true, ""},
    {"chunk cut short", chunkedHead + "5\r\nhello\r\n6\r\n wo", true, 200, false, "hello wo"},
    {"no last chunk", chunkedHead + "5\r\nhello\r\n", true, 200, false, "hello"},
    {"broken chunk size", chunkedHead + "5\r\nhello\r\nx\r\n", true, 200, false, "hello"},
    {"closed inside the header", okHead + "Content-Le", false, 0, false, ""},
    {"broken header", okHead + "Content-Length: five\r\n\r\n", false, 0, false, ""},
    {"after an interim answer", "HTTP/1.1 100 Continue\r\n\r\n" + okHead + "\r\nx", true, 200, true,
     "x"},
};

TEST(HttpExchange, TakesFramingApartAtEveryCut) {
  for (const HttpAnswerCase& c : answerCases) {
    for (std::size_t pieceSize = 1; pieceSize <= c.answer.size(); ++pieceSize) {
      expectAnswer(c, pieceSize);
    }
  }
}

}  // namespace
}  // namespace media::win::chrome_inspect
