#pragma once

namespace orvane::MessageDialogPresenter {

// Shows the pages' alert, confirm and prompt dialogs (ScriptDialogs) as modal
// AdwMessageDialogs over the page's window. Called once at start-up; calling
// it again changes nothing.
void install();

} // namespace orvane::MessageDialogPresenter
