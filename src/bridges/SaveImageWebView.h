#pragma once

#include "AccountService.h"
#include "GRef.h"
#include "SignalConnection.h"
#include "ImageCapturer.h"
#include "HeapBox.h"

#include <webkit/webkit.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace orvane {

class WebHost;
class WebViewManager;

// What makes an account's main view save images and linked files from its
// context menu. The context-menu probe reports each right-click target to
// the view's ImageCapturer; when WebKit's menu opens, its own "download
// image" and "download linked file" items are replaced, in place and with
// the same labels, by Orvane's actions carrying the target's address. The
// image is saved straight into the Downloads folder: fetched inside the page
// first (its own session), else natively with the account's cookies for the
// image's host (NativeImageFetch). The host hears of each saved file; a
// failed save sounds the error bell and the host hears why. The
// linked file becomes a regular WebKit download of the view, which the
// account's NavigationDelegate places (DownloadDestination). Pop-ups are
// plain views and get none of this. One per view, owned by the view. Main
// thread only.
class SaveImageWebView {
public:
    // Routes the manager's orvaneContextImage messages to the sending view's
    // capturer from now on.
    static void serve(WebViewManager& manager);
    // Makes the view image-saving (once; later calls do nothing).
    // The saves' outcomes are told to `host`, which outlives the view.
    static void enable(WebKitWebView* view, std::optional<AccountService> service, WebHost& host);
    // The view's image saving, or null (pop-ups, other views).
    static SaveImageWebView* of(WebKitWebView* view);

    ~SaveImageWebView();
    SaveImageWebView(const SaveImageWebView&) = delete;
    SaveImageWebView& operator=(const SaveImageWebView&) = delete;

    ImageCapturer& capturer() { return m_capturer; }
    std::optional<AccountService> service() const { return m_service; }
    WebKitWebView* view() const { return m_view; }

    // Takes a context-menu report of this view's page (orvaneContextImage).
    void receive(JSCValue* body);

    // Re-targets the menu before it opens: with an image address, the first
    // "download image" item; with a link address, the first "download linked
    // file" item. Nothing else in the menu changes. Only a report received
    // since the previous menu counts: a right-click whose report was refused
    // (a frame of another site) leaves WebKit's own items.
    void retarget(WebKitContextMenu* menu);

    // The actions of the re-targeted items: the address the item carries,
    // else the capturer's; nothing happens without one.
    void saveContextImage(const std::optional<std::string>& address);
    void downloadLinkedFile(const std::optional<std::string>& address);

    // Saves the image at `src` into the Downloads folder. The completion (for
    // tests) gets the saved file's path, or nothing when the save failed (the
    // error bell has sounded and the host has been told then). Not called when the view goes away first.
    using SaveCompletion = std::function<void(const std::optional<std::string>& path)>;
    void save(const std::string& src, SaveCompletion completion = {});

    // Writes image data as a new file in the Downloads folder under the
    // suggested name ("image" when empty), numbered while taken. The path,
    // or nothing without a Downloads folder or when the write fails.
    static std::optional<std::string> write(std::string_view data, const std::string& suggestedName);

    // The labels WebKit gives its own items, which the replacements keep.
    static std::string imageItemLabel();
    static std::string linkItemLabel();

    static constexpr const char* kFetchScript = "bridges/image-fetch.js";

private:
    friend struct HeapBox::Access;
    struct SaveTask;

    SaveImageWebView(WebKitWebView* view, std::optional<AccountService> service, WebHost& host);
    static gboolean onContextMenu(WebKitWebView*, WebKitContextMenu*, WebKitHitTestResult*, gpointer self);
    static void fetchInPage(std::shared_ptr<SaveTask> task);
    static void fetchNative(std::shared_ptr<SaveTask> task);
    static void finishSave(const std::shared_ptr<SaveTask>& task, std::string_view data, const std::string& name);

    // Borrowed references
    WebKitWebView* m_view; // owns this object
    WebHost& m_host;

    // Owned references
    ImageCapturer m_capturer;
    uint64_t m_menus = 0;        // menus re-targeted so far
    uint64_t m_reportMenu = 0;   // the value of m_menus when the last report came
    bool m_reported = false;
    std::optional<AccountService> m_service;
    Ref<GSimpleAction> m_saveImageAction;
    Ref<GSimpleAction> m_downloadLinkAction;
    Ref<GCancellable> m_cancellable;
    SignalConnection m_contextMenu;
    SignalConnection m_saveImageActivated;
    SignalConnection m_downloadLinkActivated;
};

} // namespace orvane
