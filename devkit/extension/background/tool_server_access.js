// Uploads and image loads go to the host's tool server, which accepts one origin: that of the
// assistant's own extension, which this one is not. So a rule of the browser sets the origin and
// the session header on requests that our own pages send to that one address, and on no others.

const ACCEPTED_ORIGIN = "chrome-extension://kdhmgaeofpbjilnckdhmgaeofpbjilnc";
const RULE_ID = 1;
const { HeaderOperation, ResourceType, RuleActionType } = chrome.declarativeNetRequest;

/**
 * @param {string} url of the upload route, for example http://127.0.0.1:39270/api/context-file
 * @param {string} token
 * @returns {chrome.declarativeNetRequest.Rule}
 */
function headerRule(url, token) {
  return {
    id: RULE_ID,
    condition: {
      urlFilter: `|${new URL(url).origin}/api/`,
      initiatorDomains: [chrome.runtime.id], // never a web page: it would get the token's rights
      resourceTypes: [ResourceType.XMLHTTPREQUEST, ResourceType.IMAGE, ResourceType.MEDIA],
    },
    action: {
      type: RuleActionType.MODIFY_HEADERS,
      requestHeaders: [
        { header: "Origin", operation: HeaderOperation.SET, value: ACCEPTED_ORIGIN },
        { header: "X-Morva-Session", operation: HeaderOperation.SET, value: token },
      ],
    },
  };
}

// A host that has just started answers before its tool server listens.
const ASK_AGAIN_AFTER_MS = [100, 200, 400, 800, 1_600, 3_200, 6_400];

/** @param {import("./host_client.js").HostClient} host */
async function askForAddress(host) {
  for (const pause of ASK_AGAIN_AFTER_MS) {
    const reply = await host.request({ kind: "contextImportUrl" });
    if (reply.ok) return reply;
    await new Promise((resolve) => setTimeout(resolve, pause));
  }
  return host.request({ kind: "contextImportUrl" });
}

/**
 * Asks the host where its tool server is and lets our pages reach it. The token stays here.
 * @param {import("./host_client.js").HostClient} host
 * @returns {Promise<{url: string, error: string}>} the upload route; empty when there is none
 */
export async function openToolServer(host) {
  await closeToolServer();
  const reply = await askForAddress(host);
  if (!reply.ok) return { url: "", error: reply.error };
  const addRules = [headerRule(reply.url, reply.token)];
  await chrome.declarativeNetRequest.updateSessionRules({ addRules });
  return { url: reply.url, error: "" };
}

export async function closeToolServer() {
  await chrome.declarativeNetRequest.updateSessionRules({ removeRuleIds: [RULE_ID] });
}
