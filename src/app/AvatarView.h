#pragma once

#include "Account.h"

#include <gtk/gtk.h>

#include <cstdint>

G_BEGIN_DECLS

// One account drawn as a round tile: its photo, or its initial on its own
// colour; a selection ring 3 px outside the edge; the service badge at the
// lower right and the unread capsule at the upper right. The widget measures
// exactly `size` square; the ring and the badges overhang that box and are
// drawn outside the allocation, so turning them on never moves anything.
#define ORVANE_TYPE_AVATAR_VIEW (orvane_avatar_view_get_type())
G_DECLARE_FINAL_TYPE(OrvaneAvatarView, orvane_avatar_view, ORVANE, AVATAR_VIEW, GtkWidget)

// Properties: "selected" (boolean), "unread" (int64), "size" (double, px),
// "show-badge" (boolean); "account-id" (string, read-only).
GtkWidget* orvane_avatar_view_new(void);

gboolean orvane_avatar_view_get_selected(OrvaneAvatarView* self);
void orvane_avatar_view_set_selected(OrvaneAvatarView* self, gboolean selected);
int64_t orvane_avatar_view_get_unread(OrvaneAvatarView* self);
void orvane_avatar_view_set_unread(OrvaneAvatarView* self, int64_t unread);
double orvane_avatar_view_get_size(OrvaneAvatarView* self);
void orvane_avatar_view_set_size(OrvaneAvatarView* self, double size);
gboolean orvane_avatar_view_get_show_badge(OrvaneAvatarView* self);
void orvane_avatar_view_set_show_badge(OrvaneAvatarView* self, gboolean show);

G_END_DECLS

// The account drawn. Setting it re-reads the photo file when the file name
// changed (a new photo always gets a new name) or when no photo was loaded
// yet, so a file that appears later is picked up on the next update.
void orvane_avatar_view_set_account(OrvaneAvatarView* self, const orvane::Account& account);
const orvane::Account& orvane_avatar_view_get_account(OrvaneAvatarView* self);
// Whether the tile currently shows a photo (false: the initial disc).
bool orvane_avatar_view_has_photo(OrvaneAvatarView* self);
