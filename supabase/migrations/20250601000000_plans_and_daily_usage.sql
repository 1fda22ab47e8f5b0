-- Plans and the daily allowance of each account.
--
-- Only the correct function writes here, through its own database connection; a signed-in user may
-- read their own plan and usage (the account page does) and nothing else. The day is the UTC day.

create table public.plan_limits (
  plan text primary key,
  -- Corrections a day; null: no limit.
  daily_limit integer check (daily_limit is null or daily_limit >= 0)
);

insert into public.plan_limits (plan, daily_limit) values
  ('gratuit', 3),
  ('pro_mensuel', null),
  ('pro_annuel', null),
  ('lifetime', null);

create table public.account_plans (
  user_id uuid primary key references auth.users (id) on delete cascade,
  plan text not null default 'gratuit' references public.plan_limits (plan),
  updated_at timestamptz not null default now()
);

create table public.daily_usage (
  user_id uuid not null references auth.users (id) on delete cascade,
  day date not null,
  used integer not null default 0 check (used >= 0),
  primary key (user_id, day)
);

alter table public.plan_limits enable row level security;
alter table public.account_plans enable row level security;
alter table public.daily_usage enable row level security;

-- The plans are public knowledge; an account's rows are its own.
create policy "plans are readable by everyone" on public.plan_limits
  for select to anon, authenticated using (true);
create policy "an account reads its own plan" on public.account_plans
  for select to authenticated using ((select auth.uid()) = user_id);
create policy "an account reads its own usage" on public.daily_usage
  for select to authenticated using ((select auth.uid()) = user_id);

-- No policy lets anyone else write; take the table rights away as well (the API's roles get them
-- all by default), so that a policy added by mistake later opens nothing.
revoke all on public.plan_limits, public.account_plans, public.daily_usage
  from public, anon, authenticated;
grant select on public.plan_limits to anon, authenticated;
grant select on public.account_plans, public.daily_usage to authenticated;
grant all on public.plan_limits, public.account_plans, public.daily_usage to service_role;

-- What the account page shows: the caller's plan, today's count and the day's allowance. The view
-- runs with the caller's rights, so it shows only the caller's row.
create view public.my_account with (security_invoker = true) as
  select p.user_id,
         p.plan,
         coalesce(u.used, 0) as used,
         l.daily_limit
    from public.account_plans p
    join public.plan_limits l on l.plan = p.plan
    left join public.daily_usage u
      on u.user_id = p.user_id and u.day = (now() at time zone 'utc')::date;
revoke all on public.my_account from public, anon, authenticated;
grant select on public.my_account to authenticated;

-- Takes one correction from the account's allowance for today, creating the account's plan row the
-- first time the account is seen. Exactly `daily_limit` calls of any number running at the same time
-- are granted: the count is changed by one statement that holds the row's lock, and that statement's
-- condition is checked again against the latest count when another call got there first.
create function public.take_correction(p_user uuid)
returns table (granted boolean, plan text, used integer, daily_limit integer, day date)
language plpgsql
set search_path = ''
as $$
declare
  v_day date := (now() at time zone 'utc')::date;
  v_plan text;
  v_limit integer;
  v_used integer;
begin
  insert into public.account_plans (user_id) values (p_user) on conflict (user_id) do nothing;
  select a.plan, l.daily_limit into v_plan, v_limit
    from public.account_plans a join public.plan_limits l on l.plan = a.plan
   where a.user_id = p_user;

  if v_limit is null or v_limit > 0 then
    insert into public.daily_usage as u (user_id, day, used) values (p_user, v_day, 1)
      on conflict on constraint daily_usage_pkey do update set used = u.used + 1
      where v_limit is null or u.used < v_limit
      returning u.used into v_used;
  end if;

  if v_used is not null then
    return query select true, v_plan, v_used, v_limit, v_day;
  else
    select coalesce(max(u.used), 0) into v_used
      from public.daily_usage u where u.user_id = p_user and u.day = v_day;
    return query select false, v_plan, v_used, v_limit, v_day;
  end if;
end;
$$;

-- Gives back a correction taken on `p_day` that could not be delivered; the new count for that day.
create function public.give_back_correction(p_user uuid, p_day date)
returns integer
language sql
set search_path = ''
as $$
  update public.daily_usage u set used = u.used - 1
   where u.user_id = p_user and u.day = p_day and u.used > 0
  returning u.used;
$$;

-- The account's plan and today's count, without taking anything (the answers to refused requests
-- carry them too).
create function public.correction_status(p_user uuid)
returns table (plan text, used integer, daily_limit integer)
language sql
stable
set search_path = ''
as $$
  select coalesce(a.plan, 'gratuit'),
         coalesce((select u.used from public.daily_usage u
                    where u.user_id = p_user and u.day = (now() at time zone 'utc')::date), 0),
         l.daily_limit
    from (select p_user as user_id) k
    left join public.account_plans a on a.user_id = k.user_id
    join public.plan_limits l on l.plan = coalesce(a.plan, 'gratuit');
$$;

-- Functions in the public schema are callable by everyone through the API unless told otherwise:
-- these three are for the correct function alone.
revoke execute on function public.take_correction(uuid), public.give_back_correction(uuid, date),
  public.correction_status(uuid) from public, anon, authenticated;
grant execute on function public.take_correction(uuid), public.give_back_correction(uuid, date),
  public.correction_status(uuid) to service_role;
