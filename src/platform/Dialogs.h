#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace fiva {

enum class AlertStyle { warning, informational };

// A modal alert: the message is the main text, the informative text sits below it. Buttons are
// shown in the given order; the first is the default one.
struct AlertRequest
{
    QString message;
    QString informativeText;
    AlertStyle style = AlertStyle::warning;
    QStringList buttons{QStringLiteral("OK")};
    // When set, the alert carries a one-line text field holding this text at first.
    std::optional<QString> textField;

    friend bool operator==(const AlertRequest &, const AlertRequest &) = default;
};

struct AlertAnswer
{
    // Index into AlertRequest::buttons of the button pressed.
    int button = 0;
    // What the text field held when the button was pressed (empty without a field).
    QString text;
};

struct OpenPanelRequest
{
    enum class Kind { files, folders };
    Kind kind = Kind::files;
    // Extensions without the dot, for example "fivabackup"; empty allows every file.
    QStringList allowedExtensions;
    bool allowsMultipleSelection = false;
    // The confirm button's title; empty keeps the desktop's own.
    QString confirmButtonTitle;

    friend bool operator==(const OpenPanelRequest &, const OpenPanelRequest &) = default;
};

struct SavePanelRequest
{
    QString proposedName;
    // Extensions without the dot; the panel appends the first when the user types none.
    QStringList allowedExtensions;

    friend bool operator==(const SavePanelRequest &, const SavePanelRequest &) = default;
};

// What the store and the screens ask of the user through the desktop's dialogs. Alerts are modal
// and answer at once. Panels do not block: their answer reaches the callback later, on the main
// thread, once the user has chosen; the callback gets nothing when the panel was cancelled.
class Dialogs
{
public:
    using OpenPanelDone = std::function<void(std::optional<QStringList> chosenPaths)>;
    using SavePanelDone = std::function<void(std::optional<QString> chosenPath)>;

    virtual ~Dialogs() = default;

    virtual AlertAnswer runAlert(const AlertRequest &request) = 0;
    virtual void showOpenPanel(const OpenPanelRequest &request, OpenPanelDone done) = 0;
    virtual void showSavePanel(const SavePanelRequest &request, SavePanelDone done) = 0;

    // The failure alert: warning style, the title as main text, one "OK" button.
    void showAlert(const QString &title, const QString &message)
    {
        runAlert(AlertRequest{title, message, AlertStyle::warning, {QStringLiteral("OK")}, std::nullopt});
    }
};

} // namespace fiva
