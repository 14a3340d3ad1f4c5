/** What a failed call tells of its outcome:
 * - `daemon`: the configuration daemon cannot be reached; nothing was stored
 * - `refused`: the web server, the program or this module refused it; nothing was stored
 * - `broken`: an answer began and is not whole, or the connection to the daemon broke; a write may be stored
 * - `silent`: the program gave no answer; a write may be stored */
export type FailureKind = 'daemon' | 'refused' | 'broken' | 'silent';

/** A failed call rejects with it. */
export declare class ApplianceError extends Error {
  constructor(kind: FailureKind, message: string, options?: { status?: number; cause?: unknown });
  readonly kind: FailureKind;
  /** The HTTP status, if there was one. */
  readonly status: number | undefined;
  /** The error of `fetch` or of the JSON parser, or the `Response`. */
  readonly cause?: unknown;
}

export interface CallOptions {
  /** Aborted, it rejects the call with its reason; a write that was sent may be stored. */
  signal?: AbortSignal | undefined;
  /** How long an answer may take, from the moment the request is sent. */
  seconds?: number | undefined;
}

export interface ReadResult {
  /** In the order of the names, each once. */
  values: Map<string, string>;
  /** The names without a value. */
  invalid: string[];
}

export interface WriteResult {
  /** As it was sent to the daemon. Only a read tells the stored value. */
  value: string;
  /** The daemon's complaint, or an empty string. */
  reply: string;
}

/** Sends one request at a time, in the order of the calls. */
export declare class Appliance {
  /** `seconds`, 35 by default, is how long an answer may take. */
  constructor(url?: string | URL, seconds?: number);
  /** A long list takes several requests; if one of them fails, the call fails. */
  read(names: Iterable<string> & object, options?: CallOptions): Promise<ReadResult>;
  write(name: string, value: string | number, options?: CallOptions): Promise<WriteResult>;
}
