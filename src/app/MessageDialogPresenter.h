#pragma once

#include "ScriptDialogs.h"

namespace orvane::MessageDialogPresenter {

// Shows a question (a page's alert, confirm or prompt, or Orvane's own about
// a page) as a modal AdwMessageDialog over `parent` (may be null) and calls
// the completion once: with the response chosen or, when the dialog goes
// away unanswered, the close response.
void present(GtkWindow* parent, const ScriptDialogs::Request& request, ScriptDialogs::Completion completion);

} // namespace orvane::MessageDialogPresenter
