#include "access/selection_watcher.h"

#include "app/app.h"

namespace mirlo {

SelectionWatcher::SelectionWatcher(App& app) : app_(app) {}

}  // namespace mirlo
