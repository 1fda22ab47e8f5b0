// The hosted service's stack shared by every test of this program.
#pragma once

#include <string>

#include "supabase/supabase_stack.h"

namespace mirlo::supabase::testing {

// Started on first use and stopped when the tests end; null (and the test failed) when it could
// not start.
SupabaseStack* sharedStack();

// The account's count for today in the database.
int usedToday(SupabaseStack& stack, const std::string& user);

}  // namespace mirlo::supabase::testing
