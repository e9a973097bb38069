#include "AvatarRefresher.h"

#include "AppPaths.h"
#include "Files.h"
#include "ImageBytes.h"
#include "PageScripts.h"
#include "MailService.h"
#include "AvatarDownload.h"
#include "AvatarPhoto.h"
#include "PageProbe.h"
#include "WebViewManager.h"
#include "HeapBox.h"

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gdk/gdk.h>

#include <algorithm>
#include <vector>

namespace orvane {

namespace {

constexpr const char* kNameArgument = "acctName";

std::string avatarPath(const std::string& fileName) {
    GCharPtr path(g_build_filename(AppPaths::avatarsDir().c_str(), fileName.c_str(), nullptr));
    return path.get();
}

} // namespace

// A refresh waiting for the main loop to go idle; holds the view and the
// refresher weakly.
struct AvatarRefresher::DeferredProbe {
    DeferredProbe(AvatarRefresher* refresher, Lifetime::Watch alive, std::string accountID, WebKitWebView* view)
        : refresher(refresher), alive(std::move(alive)), accountID(std::move(accountID)) {
        g_weak_ref_init(&this->view, view);
    }
    ~DeferredProbe() { g_weak_ref_clear(&view); }

    AvatarRefresher* refresher; // valid while `alive` holds
    Lifetime::Watch alive;
    std::string accountID;
    GWeakRef view;
};

AvatarRefresher::AvatarRefresher(const WebViewManager& manager)
    : m_manager(manager)
    , m_cancellable(adopt(g_cancellable_new())) {
}

AvatarRefresher::~AvatarRefresher() {
    m_lifetime.end();
    g_cancellable_cancel(m_cancellable.get());
}

void AvatarRefresher::refresh(const std::string& accountID, WebKitWebView* view) {
    if (!view)
        return finish(accountID, Outcome::Skipped);
    // WebKit reports a finished load before the title that came with it; once
    // that title has renamed the account, the Outlook script can pick the
    // photo labelled with the account's name.
    auto* task = HeapBox::make<DeferredProbe>(this, m_lifetime.watch(), accountID, view);
    g_idle_add_full(G_PRIORITY_DEFAULT_IDLE, +[](gpointer data) -> gboolean {
        auto* task = static_cast<DeferredProbe*>(data);
        if (!task->alive.alive())
            return G_SOURCE_REMOVE;
        Ref<WebKitWebView> view = adopt(static_cast<WebKitWebView*>(g_weak_ref_get(&task->view)));
        if (!view)
            task->refresher->finish(task->accountID, Outcome::Skipped);
        else
            task->refresher->probe(task->accountID, view.get());
        return G_SOURCE_REMOVE;
    }, task, HeapBox::free<DeferredProbe>);
}

void AvatarRefresher::probe(const std::string& accountID, WebKitWebView* view) {
    AccountStore* store = m_manager.store();
    const Account* account = store ? store->account(accountID) : nullptr;
    if (!account)
        return finish(accountID, Outcome::Skipped);
    const MailService& service = m_manager.services().forService(account->service);
    if (!service.photoJS || service.photoJS->empty())
        return finish(accountID, Outcome::Skipped);

    Lifetime::Watch alive = m_lifetime.watch();
    PageProbe::photoURL(view, *service.photoJS, { { kNameArgument, account->label } },
        [this, alive, accountID](std::optional<std::string> photo) {
            if (!alive.alive())
                return;
            if (!photo)
                return finish(accountID, Outcome::Skipped);
            photoFound(accountID, *photo);
        },
        m_cancellable.get(), PageScripts::sourceURI(service.photoScriptName));
}

void AvatarRefresher::photoFound(const std::string& accountID, const std::string& photo) {
    AccountStore* store = m_manager.store();
    const Account* account = store ? store->account(accountID) : nullptr;
    if (!account)
        return finish(accountID, Outcome::Skipped);
    std::string identity = AvatarPhoto::identity(photo);
    // An address the store would not keep would be fetched on every load.
    if (identity.size() > Account::kMaxPhotoAddressBytes) {
        g_info("Refused a photo address of %zu bytes", identity.size());
        return finish(accountID, Outcome::Failed);
    }
    // Recorded names were checked when the accounts file was read.
    const auto& recorded = account->avatarFileName;
    if (recorded && Files::exists(avatarPath(*recorded)) && account->avatarSourceURL == identity)
        return finish(accountID, Outcome::Unchanged);
    download(photo, identity, accountID);
}

void AvatarRefresher::download(const std::string& photo, const std::string& identity, const std::string& accountID) {
    if (photo.starts_with("data:")) {
        auto decoded = ImageBytes::fromDataURL(photo);
        if (!decoded)
            return finish(accountID, Outcome::Failed);
        return persist(decoded->data, identity, accountID);
    }
    // Several page loads in a row ask for the same photo: one fetch serves them.
    std::string key = accountID + "\n" + identity;
    if (!m_fetching.insert(key).second)
        return finish(accountID, Outcome::Skipped);
    Lifetime::Watch alive = m_lifetime.watch();
    AvatarDownload::start(photo, m_cancellable.get(),
        [this, alive, key, identity, accountID](std::optional<std::string> body) {
            if (!alive.alive())
                return;
            m_fetching.erase(key);
            if (!body)
                return finish(accountID, Outcome::Failed);
            persist(*body, identity, accountID);
        });
}

void AvatarRefresher::persist(const std::string& bytes, const std::string& identity, const std::string& accountID) {
    if (!isImage(bytes))
        return finish(accountID, Outcome::Failed);
    AccountStore* store = m_manager.store();
    const Account* account = store ? store->account(accountID) : nullptr;
    if (!account)
        return finish(accountID, Outcome::Skipped);
    auto newName = AvatarPhoto::fileName(accountID, identity);
    if (!newName)
        return finish(accountID, Outcome::Failed);
    const std::optional<std::string> oldName = account->avatarFileName;
    const std::string dataStoreID = account->dataStoreID;

    // Written before any account points at it. A failed write (logged) leaves
    // the accounts on the old photo; the next load tries again.
    if (!Files::replaceAtomically(avatarPath(*newName), bytes))
        return finish(accountID, Outcome::Failed);

    // update() notifies observers, which may change the list: work from ids.
    std::vector<std::string> sharing;
    for (const Account& other : store->accounts())
        if (other.dataStoreID == dataStoreID)
            sharing.push_back(other.id);
    for (const std::string& id : sharing) {
        const Account* other = store->account(id);
        if (!other)
            continue;
        Account changed = *other;
        changed.avatarFileName = *newName;
        changed.avatarSourceURL = identity;
        store->update(changed);
    }

    // The old file goes last, and only when no account still shows it.
    if (oldName && *oldName != *newName) {
        const auto& accounts = store->accounts();
        bool stillUsed = std::any_of(accounts.begin(), accounts.end(),
            [&](const Account& a) { return a.avatarFileName == oldName; });
        if (!stillUsed)
            Files::removeFile(AppPaths::avatarsDir(), *oldName);
    }
    finish(accountID, Outcome::Stored);
}

bool AvatarRefresher::isImage(const std::string& bytes) {
    if (bytes.empty())
        return false;
    // The size first, from the header alone, as gdk_pixbuf_get_file_info
    // does: a size of 0 x 0 makes the loader stop before it allocates pixels.
    auto loader = adopt(gdk_pixbuf_loader_new());
    int width = 0;
    int height = 0;
    struct Size {
        int* width;
        int* height;
    } size { &width, &height };
    g_signal_connect(loader.get(), "size-prepared",
        G_CALLBACK(+[](GdkPixbufLoader* l, int w, int h, gpointer data) {
            auto* s = static_cast<Size*>(data);
            *s->width = w;
            *s->height = h;
            gdk_pixbuf_loader_set_size(l, 0, 0);
        }),
        &size);
    constexpr size_t kChunk = 64 * 1024;
    for (size_t offset = 0; width == 0 && offset < bytes.size(); offset += kChunk) {
        size_t length = std::min(kChunk, bytes.size() - offset);
        if (!gdk_pixbuf_loader_write(loader.get(), reinterpret_cast<const guchar*>(bytes.data() + offset), length,
                nullptr))
            break;
    }
    gdk_pixbuf_loader_close(loader.get(), nullptr);
    loader.reset();
    if (width <= 0 || height <= 0 || width > kMaxPhotoSide || height > kMaxPhotoSide)
        return false;
    // Then the whole image, with the decoder the avatar tile uses.
    GBytesPtr data(g_bytes_new(bytes.data(), bytes.size()));
    auto texture = adopt(gdk_texture_new_from_bytes(data.get(), nullptr));
    return static_cast<bool>(texture);
}

} // namespace orvane
