import { deepStrictEqual as assertEquals } from "node:assert/strict";
import { AuthApiError, AuthRetryableFetchError } from "npm:@supabase/supabase-js@2.119.1";
import { type Caller, identify, type UserCheck } from "./caller.ts";

const ANON = "anon.key.jwt";
const TOKEN = "a.b.c";

function asking(authorization: string | null): Request {
  const headers = new Headers();
  if (authorization !== null) headers.set("authorization", authorization);
  return new Request("http://function/correct", { method: "POST", headers });
}

// The auth server's answer to every check, and the tokens it was asked about.
function server(answer: Awaited<ReturnType<UserCheck>>) {
  const asked: string[] = [];
  const check: UserCheck = (token) => {
    asked.push(token);
    return Promise.resolve(answer);
  };
  return { asked, check };
}

Deno.test("a live token is the account the auth server names", async () => {
  const auth = server({ data: { user: { id: "u-1" } }, error: null });
  assertEquals(await identify(asking(`Bearer ${TOKEN}`), ANON, auth.check), { id: "u-1" });
  assertEquals(await identify(asking(`bearer  ${TOKEN} `), ANON, auth.check), { id: "u-1" });
  assertEquals(auth.asked, [TOKEN, TOKEN]);
});

Deno.test("no token, the anonymous key or something else is refused without asking", async () => {
  const auth = server({ data: { user: { id: "u-1" } }, error: null });
  for (const header of [null, "", "Bearer ", `Bearer ${ANON}`, "Basic a.b.c", "Bearer abc"]) {
    assertEquals(await identify(asking(header), ANON, auth.check), "refused", String(header));
  }
  assertEquals(auth.asked, []);
});

Deno.test("only the auth server's own refusal refuses; its failures do not sign anyone out", async () => {
  const cases: [unknown, Caller][] = [
    [new AuthApiError("invalid JWT", 403, "bad_jwt"), "refused"],
    [new AuthApiError("Session not found", 403, "session_not_found"), "refused"],
    [new AuthApiError("no token", 401, "no_authorization"), "refused"],
    [new AuthApiError("slow down", 429, "over_request_rate_limit"), "unavailable"],
    [new AuthApiError("boom", 500, "unexpected_failure"), "unavailable"],
    [new AuthRetryableFetchError("fetch failed", 0), "unavailable"],
    [null, "unavailable"],
  ];
  for (const [error, expected] of cases) {
    const auth = server({ data: { user: null }, error });
    assertEquals(
      await identify(asking(`Bearer ${TOKEN}`), ANON, auth.check),
      expected,
      String(error),
    );
  }
});
