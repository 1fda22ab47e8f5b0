// Who is asking: the account behind the request's access token, as Supabase Auth says it.
import { isAuthApiError } from "npm:@supabase/supabase-js@2.119.1";

/** The account, "refused" (the program refreshes its session), or "unavailable" (it does not). */
export type Caller = { id: string } | "refused" | "unavailable";

/** Supabase Auth's user check: supabase-js's `auth.getUser`. */
export type UserCheck = (token: string) => Promise<{
  data: { user: { id: string } | null };
  error: unknown;
}>;

// Supabase Auth knows the project's signing keys, whichever they are, and whether the session
// behind the token has ended; so the token is checked by asking it.
export async function identify(
  request: Request,
  anonKey: string,
  getUser: UserCheck,
): Promise<Caller> {
  const header = request.headers.get("authorization") ?? "";
  const token = /^bearer\s+(\S+)$/i.exec(header.trim())?.[1] ?? "";
  if (token === "" || token === anonKey || token.split(".").length !== 3) {
    return "refused";
  }
  const { data, error } = await getUser(token);
  if (!error && data.user) return { id: data.user.id };
  // A refusal makes the program refresh its session, and a refresh that fails signs the person
  // out: only the auth server's own "no" may say so, never its being out of reach or busy.
  if (
    isAuthApiError(error) && error.status >= 400 && error.status < 500 &&
    error.status !== 429
  ) {
    return "refused";
  }
  const what = error instanceof Error
    ? `${error.name} ${(error as { status?: number }).status ?? ""}`
    : "no user";
  console.error(`auth server: ${what}`);
  return "unavailable";
}
