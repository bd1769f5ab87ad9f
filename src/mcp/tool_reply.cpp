#include "mcp/tool_reply.h"

#include "text/json_text.h"

namespace media::win::chrome_inspect {

std::string toolReply(const ToolOutcome& outcome) {
  std::string text;
  JsonObjectText reply(text);
  JsonListText content(reply.member("content"));
  JsonObjectText block(content.element());
  block.text("type", "text");
  block.text("text", outcome.text);
  block.end();
  content.end();
  if (outcome.isResult) reply.member("structuredContent") += outcome.text;
  reply.flag("isError", outcome.isFailure);
  reply.end();
  return text;
}

}  // namespace media::win::chrome_inspect
