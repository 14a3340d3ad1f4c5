// The types of appliance.js, whose comments say more.

export type FailureKind = 'daemon' | 'refused' | 'broken' | 'silent';

export declare class ApplianceError extends Error {
  constructor(kind: FailureKind, message: string, options?: { status?: number; cause?: unknown });
  readonly kind: FailureKind;
  readonly status: number | undefined;
  readonly cause?: unknown;
}

export interface CallOptions {
  signal?: AbortSignal | undefined;
  seconds?: number | undefined;
}

export interface ReadResult {
  values: Map<string, string>;
  invalid: string[];
}

export interface WriteResult {
  value: string;
  reply: string;
}

export declare class Appliance {
  constructor(url?: string | URL, seconds?: number);
  read(names: Iterable<string> & object, options?: CallOptions): Promise<ReadResult>;
  write(name: string, value: string | number, options?: CallOptions): Promise<WriteResult>;
}
