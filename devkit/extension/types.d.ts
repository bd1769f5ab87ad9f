// What of the browser's interfaces this extension uses, for the type check of ./dev lint; nothing
// here is loaded. The whole of them: https://developer.chrome.com/docs/extensions/reference/api

declare namespace chrome {
  interface Listeners<Listener> {
    addListener(listener: Listener): void;
    removeListener(listener: Listener): void;
  }

  namespace runtime {
    const id: string;
    const lastError: { message?: string } | undefined;
    interface Port {
      name: string;
      onMessage: Listeners<(message: any) => void>;
      onDisconnect: Listeners<(port: Port) => void>;
      postMessage(message: object): void;
      disconnect(): void;
    }
    const onConnect: Listeners<(port: Port) => void>;
    function connect(options: { name: string }): Port;
    function connectNative(host: string): Port;
    function getURL(path: string): string;
  }

  namespace tabs {
    interface Tab {
      id?: number;
      windowId: number;
      url?: string;
      pendingUrl?: string;
      title?: string;
      status?: string;
      lastAccessed?: number;
    }
    interface Change {
      status?: string;
      url?: string;
      title?: string;
    }
    const onActivated: Listeners<() => void>;
    const onRemoved: Listeners<(tabId: number) => void>;
    const onUpdated: Listeners<(tabId: number, change: Change) => void>;
    function get(tabId: number): Promise<Tab>;
    function query(wanted: { active?: boolean; lastFocusedWindow?: boolean }): Promise<Tab[]>;
    function create(options: { url: string; active?: boolean }): Promise<Tab>;
    function update(tabId: number, options: { url?: string; active?: boolean }): Promise<Tab | undefined>;
    function reload(tabId: number): Promise<void>;
    function remove(tabId: number): Promise<void>;
  }

  namespace windows {
    function update(windowId: number, options: { focused: boolean }): Promise<object>;
  }

  namespace scripting {
    interface Target {
      tabId: number;
      allFrames?: boolean;
      documentIds?: string[];
    }
    interface Result {
      documentId: string;
      result?: any;
    }
    function executeScript(injection: {
      target: Target;
      files?: string[];
      func?: (...args: any[]) => any;
      args?: any[];
    }): Promise<Result[]>;
  }

  namespace declarativeNetRequest {
    const HeaderOperation: { SET: "set" };
    const ResourceType: { XMLHTTPREQUEST: "xmlhttprequest"; IMAGE: "image"; MEDIA: "media" };
    const RuleActionType: { MODIFY_HEADERS: "modifyHeaders" };
    interface Rule {
      id: number;
      condition: { urlFilter: string; initiatorDomains: string[]; resourceTypes: string[] };
      action: {
        type: "modifyHeaders";
        requestHeaders: { header: string; operation: "set"; value: string }[];
      };
    }
    function updateSessionRules(change: { addRules?: Rule[]; removeRuleIds?: number[] }): Promise<void>;
  }

  namespace sidePanel {
    function setPanelBehavior(behaviour: { openPanelOnActionClick: boolean }): Promise<void>;
  }
}

// What the scripts of page/ share with each other in the page's world of extensions.
declare var morvaPage: any;

// Newer than the type checker's own list.
interface Element {
  checkVisibility(options: { checkVisibilityCSS: boolean }): boolean;
}
interface Window {
  navigation?: EventTarget;
}
declare var navigation: EventTarget | undefined;
