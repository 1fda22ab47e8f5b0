// The correct function: POST {text, mode, device_id} with the person's access token, answers
// {result, plan, usage} or {code, error, plan, usage}. It checks the token itself (the gateway's
// own check is off: its refusal carries a numeric code, which the program would show instead of
// refreshing the session), takes one correction from the day's allowance, asks the model, and
// gives the correction back when none could be delivered.
//
// Settings: SUPABASE_URL, SUPABASE_ANON_KEY, SUPABASE_DB_URL (set by Supabase for every function),
// MIRLO_MODEL_URL (an OpenAI-compatible API, to which /chat/completions is appended), MIRLO_MODEL,
// MIRLO_MODEL_KEY (secrets). Run by hand, it listens on PORT (8000 when unset).

import postgres from "npm:postgres@3.4.9";
import { createClient } from "npm:@supabase/supabase-js@2.119.1";
import { identify } from "../_shared/caller.ts";
import {
  type Answer,
  cleanAnswer,
  type Correction,
  delivered,
  MAX_BODY_BYTES,
  messages,
  modelContent,
  modelRequest,
  readRequest,
  refusal,
  type Standing,
} from "../_shared/correction.ts";

const AUTH_TIMEOUT_MS = 5_000;
// The program gives up after 15 s; the model must answer well before, so that a correction that
// could not be delivered is given back rather than counted for nothing.
const MODEL_TIMEOUT_MS = 12_000;
const MAX_MODEL_ANSWER_BYTES = 1 << 20;
// A body over the limit is still read up to this much before the refusal (see readCapped).
const DRAIN_LIMIT_BYTES = 8 * MAX_BODY_BYTES;

function setting(name: string): string {
  const value = Deno.env.get(name);
  if (!value) throw new Error(`${name} is not set`);
  return value;
}

const anonKey = setting("SUPABASE_ANON_KEY");
const auth = createClient(setting("SUPABASE_URL"), anonKey, {
  auth: {
    persistSession: false,
    autoRefreshToken: false,
    detectSessionInUrl: false,
  },
  global: {
    fetch: (input, init) => fetch(input, { ...init, signal: AbortSignal.timeout(AUTH_TIMEOUT_MS) }),
  },
}).auth;

const modelUrl = setting("MIRLO_MODEL_URL").replace(/\/+$/, "") +
  "/chat/completions";
const modelName = setting("MIRLO_MODEL");
const modelKey = Deno.env.get("MIRLO_MODEL_KEY") ?? "";

const sql = postgres(setting("SUPABASE_DB_URL"), {
  // Statements are not prepared, so that a transaction-mode pooler between us and the database
  // works as well as a direct connection.
  prepare: false,
  max: 5,
  idle_timeout: 30,
  connect_timeout: 10,
  ssl: databaseTls(setting("SUPABASE_DB_URL")),
});

// Encrypted and verified, unless the address says otherwise or the database is on this machine.
function databaseTls(url: string): "verify-full" | false | undefined {
  const parsed = new URL(url);
  if (parsed.searchParams.has("sslmode")) return undefined;
  const host = parsed.hostname.replace(/^\[|\]$/g, "");
  if (host === "localhost" || host === "::1" || host.startsWith("127.")) {
    return false;
  }
  return "verify-full";
}

// The body's bytes, or null when there are more than `limit`. Past the limit the rest is still
// read, up to `drainLimit`, and thrown away: a client still sending when the refusal comes would
// otherwise see its connection broken instead of the answer.
async function readCapped(
  stream: ReadableStream<Uint8Array> | null,
  limit: number,
  drainLimit = limit,
): Promise<Uint8Array | null> {
  if (!stream) return new Uint8Array();
  const parts: Uint8Array[] = [];
  let size = 0;
  for await (const part of stream) {
    size += part.byteLength;
    if (size <= limit) parts.push(part);
    else if (size > drainLimit) break;
  }
  if (size > limit) return null;
  const all = new Uint8Array(size);
  let at = 0;
  for (const part of parts) {
    all.set(part, at);
    at += part.byteLength;
  }
  return all;
}

function standingOf(row: postgres.Row): Standing {
  return {
    plan: row.plan,
    used: row.used,
    limit: row.daily_limit,
  };
}

async function standing(user: string): Promise<Standing> {
  const [row] = await sql`select * from public.correction_status(${user})`;
  return standingOf(row);
}

// The model's text for one correction, or null when it failed or said nothing usable.
async function askModel(
  correction: Correction,
  signal: AbortSignal,
): Promise<string | null> {
  try {
    const response = await fetch(modelUrl, {
      method: "POST",
      headers: {
        "content-type": "application/json",
        ...(modelKey ? { authorization: `Bearer ${modelKey}` } : {}),
      },
      body: JSON.stringify(modelRequest(modelName, correction)),
      signal: AbortSignal.any([
        signal,
        AbortSignal.timeout(MODEL_TIMEOUT_MS),
      ]),
    });
    const bytes = await readCapped(response.body, MAX_MODEL_ANSWER_BYTES);
    if (!response.ok || bytes === null) {
      console.error(`model: status ${response.status}`);
      return null;
    }
    const content = modelContent(JSON.parse(new TextDecoder().decode(bytes)));
    return content === null ? null : cleanAnswer(correction.text, content);
  } catch (error) {
    console.error(`model: ${(error as Error).name}`);
    return null;
  }
}

async function correct(request: Request): Promise<Answer> {
  if (request.method !== "POST") {
    return refusal(405, "bad_request", messages.badRequest);
  }
  const declared = Number(request.headers.get("content-length") ?? "0");
  if (declared > DRAIN_LIMIT_BYTES) {
    return refusal(413, "too_large", messages.tooLarge);
  }
  const bytes = await readCapped(request.body, MAX_BODY_BYTES, DRAIN_LIMIT_BYTES);
  if (bytes === null) return refusal(413, "too_large", messages.tooLarge);

  const who = await identify(request, anonKey, (token) => auth.getUser(token));
  if (who === "refused") return refusal(401, "auth", messages.auth);
  if (who === "unavailable") {
    return refusal(503, "unavailable", messages.unavailable);
  }

  const asked = readRequest(bytes);
  if ("status" in asked) {
    return refusal(
      asked.status,
      asked.body.code as string,
      asked.body.error as string,
      await standing(who.id),
    );
  }

  // The day travels as text: a date made into a JavaScript Date and back would move by the
  // session's time zone.
  const [taken] = await sql`
    select granted, plan, used, daily_limit, day::text as day
      from public.take_correction(${who.id})`;
  const now = standingOf(taken);
  if (!taken.granted) {
    return refusal(429, "quota", messages.quota(now.limit ?? 0), now);
  }

  const result = await askModel(asked, request.signal);
  if (result !== null) return delivered(result, now);

  const [back] = await sql`
    select public.give_back_correction(${who.id}, ${taken.day}::date) as used`;
  return refusal(502, "upstream", messages.upstream(asked.mode), {
    ...now,
    used: back.used ?? now.used - 1,
  });
}

async function handle(request: Request): Promise<Response> {
  let answer: Answer;
  try {
    answer = await correct(request);
  } catch (error) {
    // The database could not be reached or refused the statement: without a count there is no
    // correction, so the quota cannot be bypassed by a fault.
    console.error(`storage: ${(error as Error).message}`);
    answer = refusal(503, "storage", messages.storage);
  }
  return Response.json(answer.body, { status: answer.status });
}

// On Supabase the runtime decides where the function listens; by hand, PORT does (8000 unset).
const port = Deno.env.get("PORT");
if (port) Deno.serve({ port: Number(port) }, handle);
else Deno.serve(handle);
