#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "agent/agent_state.h"
#include "agent/agent_stream.h"

// The one way to speak HTTP with the agent, which listens on 127.0.0.1.
namespace media::win::chrome_inspect {

struct AgentResponse {
  std::uint32_t status = 0;  // 0 when no response header came
  std::string body;          // when no sink was given
  std::string error;         // empty when the exchange came to its end, whatever the status
};

struct AgentRequestOptions {
  // The response is an open-ended stream: no receive time-out, no size limit.
  bool streaming = false;
  ChunkSink sink;
  // Where another thread finds the request to abort it. A slot other than `plain` waits for the
  // response without limit; a streaming request without one is published as a turn's.
  CancelSlot slot = CancelSlot::plain;
  // Says whether the caller was cancelled, also before the request began; empty: whether
  // cancelRequested(), which does not keep a request from beginning.
  std::function<bool()> cancelled;
  // For requests that are no streams: what the body may measure, and how long the whole may take.
  // Past either the error is "agent response truncated". The time is looked at between two reads,
  // each of which waits up to 15 s at most, or up to `totalMs` when that is less.
  std::size_t maxBodyBytes = 64 * 1024 * 1024;
  std::uint32_t totalMs = 60000;  // 0: no limit but those of each step
};

// Makes one request and blocks until its end; never throws but what the sink throws. `body` is JSON
// text, or empty for none. `error` is one of "winhttp open failed", "winhttp connect failed",
// "winhttp request failed", "agent request failed", "agent response truncated" and, when the
// request was cancelled, "cancelled". Threads: any.
AgentResponse agentRequest(std::uint16_t port, const std::wstring& verb, const std::wstring& path,
                           std::string_view body, const AgentRequestOptions& options = {});

// Whether an agent answers "/ready" on `port`: status 200 and a JSON object whose "ready", if it
// has one, is true. Takes `limitMs` at most, give or take one read.
bool probeAgentReady(std::int32_t port, std::uint32_t limitMs = 15000);

// The same in two steps, for who wants to know what a port that is not ready says.
AgentResponse askAgentReady(std::int32_t port, std::uint32_t limitMs);
bool isReadyAnswer(const AgentResponse& response);

}  // namespace media::win::chrome_inspect
