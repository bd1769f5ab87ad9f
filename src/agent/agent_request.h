#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "agent/agent_stream.h"
#include "agent/request_slots.h"
#include "agent/running_turns.h"

// The one way to speak HTTP with the agent, which listens on 127.0.0.1. There is one entry for each
// kind of request; they differ in who may abort it, how long it may take, and where its body goes.
// All block until the exchange has ended, and throw only what a sink throws. Threads: any.
namespace media::win::chrome_inspect {

struct AgentResponse {
  std::uint32_t status = 0;  // 0 when no response header came
  std::string body;          // of a plain request; what had come of it when it failed
  // Empty when the exchange came to its end, whatever the status. Else one of "winhttp open
  // failed", "winhttp connect failed", "winhttp request failed", "agent request failed", "agent
  // response truncated" and, when the request was cancelled, "cancelled".
  std::string error;
  bool wasSent = false;  // the request went out whole: the agent may have done what it asks for
};

// What the body of a plain request's answer may measure, and how long the whole may take. Past
// either the error is "agent response truncated". The time is checked between two reads, each of
// which waits up to 15 s, or up to `totalMs` when that is less.
struct AnswerLimits {
  std::size_t maxBodyBytes = 64 * 1024 * 1024;
  std::uint32_t totalMs = 60000;  // 0: no limit but those of each step
};

// A plain request: the answer is collected. Only the end of the host aborts it. `body` is JSON
// text, or empty for none. While a stop is pending (cancelRequested), a request for which no
// response header came has failed with "cancelled".
AgentResponse agentRequest(std::uint16_t port, const std::wstring& verb, const std::wstring& path,
                           std::string_view body, const AnswerLimits& limits = {});

// Has the agent read a text aloud, and waits for its answer, up to 10 minutes for each read and in
// all. Published in the slot `speech`; when `isStopped` returns true it is not sent, or has failed
// with "cancelled".
AgentResponse agentSpeech(std::uint16_t port, std::string_view body,
                          const std::function<bool()>& isStopped);

// As agentRequest, on behalf of a chat turn: a stop of the turn aborts it, or keeps it from being
// sent.
AgentResponse agentTurnRequest(std::uint16_t port, const std::wstring& verb,
                               const std::wstring& path, std::string_view body,
                               const RunningTurn& turn);

// Posts the request of a chat turn; the answer is a stream without time or size limit that goes to
// `sink`. A stop of the turn aborts it, or keeps it from being sent.
AgentResponse agentTurnStream(std::uint16_t port, const std::wstring& path, std::string_view body,
                              const RunningTurn& turn, const ChunkSink& sink);

// Reads a feed, a stream without end, into `sink`. `isCurrent` returns whether the caller still
// wants it: a feed that is not current is not asked for, and whoever makes it so then aborts what
// is published in its place.
AgentResponse agentFeed(std::uint16_t port, const std::wstring& path, const RequestPlace& place,
                        const std::function<bool()>& isCurrent, const ChunkSink& sink);

}  // namespace media::win::chrome_inspect
