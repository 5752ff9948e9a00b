#include "ui/common/QtDialogs.h"

#include "platform/Paths.h"
#include "platform/Settings.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>

#include <algorithm>
#include <memory>
#include <utility>

namespace fiva {

namespace {

// QMessageBox has no place for an accessory widget; its layout is a grid whose last row holds the
// buttons, so the field goes in that row and the buttons move one row down.
void insertTextField(QMessageBox &box, QLineEdit *field)
{
    auto *grid = qobject_cast<QGridLayout *>(box.layout());
    auto *buttons = box.findChild<QDialogButtonBox *>();
    if (!grid || !buttons) {
        if (box.layout())
            box.layout()->addWidget(field);
        return;
    }
    const int index = grid->indexOf(buttons);
    int row = 0, column = 0, rowSpan = 1, columnSpan = 1;
    grid->getItemPosition(index, &row, &column, &rowSpan, &columnSpan);
    grid->removeWidget(buttons);
    grid->addWidget(field, row, 1, 1, grid->columnCount() - 1);
    grid->addWidget(buttons, row + 1, column, rowSpan, columnSpan);
}

void startInFolder(QFileDialog &panel, const Paths *paths, const Settings *settings, Settings::Key memory)
{
    QString folder = settings ? settings->value(memory).toString() : QString();
    // The remembered folder may have been moved or removed since, or be on a disk that is not there.
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        folder = paths ? paths->documentsFolder() : QString();
    if (!folder.isEmpty())
        panel.setDirectory(folder);
}

// The folder holding what was chosen, rather than the one the panel showed last: a name typed with
// a folder in it saves there.
void rememberFolder(Settings *settings, Settings::Key memory, const QString &chosen)
{
    if (settings)
        settings->setValue(memory, QFileInfo(chosen).absolutePath());
}

} // namespace

QtDialogs::QtDialogs(QWidget *parentWindow) : m_parentWindow(parentWindow) {}

void QtDialogs::setStartFolders(const Paths &paths, Settings &settings)
{
    m_paths = &paths;
    m_settings = &settings;
}

AlertAnswer QtDialogs::runAlert(const AlertRequest &request)
{
    QMessageBox box(m_parentWindow);
    box.setWindowModality(Qt::ApplicationModal);
    box.setIcon(request.style == AlertStyle::warning ? QMessageBox::Warning : QMessageBox::Information);
    box.setWindowTitle(request.message);
    box.setText(request.message);
    box.setInformativeText(request.informativeText);

    const QStringList labels =
        request.buttons.isEmpty() ? QStringList{QStringLiteral("OK")} : request.buttons;
    QList<QPushButton *> buttons;
    for (qsizetype i = 0; i < labels.size(); ++i) {
        // The first button confirms; the others back out, which also keeps them in the given order
        // within their role on every desktop layout.
        const auto role = i == 0 ? QMessageBox::AcceptRole : QMessageBox::RejectRole;
        buttons.append(box.addButton(labels[i], role));
    }
    box.setDefaultButton(buttons.first());
    box.setEscapeButton(buttons.last());

    QLineEdit *field = nullptr;
    if (request.textField) {
        field = new QLineEdit(*request.textField, &box);
        field->setObjectName(QStringLiteral("alertTextField"));
        field->setMinimumWidth(200);
        field->setFixedHeight(std::max(24, field->sizeHint().height()));
        insertTextField(box, field);
        field->selectAll();
        field->setFocus();
    }

    box.exec();

    AlertAnswer answer;
    const qsizetype pressed = buttons.indexOf(qobject_cast<QPushButton *>(box.clickedButton()));
    // Closing the window without a button counts as the escape button.
    answer.button = static_cast<int>(pressed >= 0 ? pressed : buttons.size() - 1);
    if (field)
        answer.text = field->text();
    return answer;
}

QStringList QtDialogs::nameFilters(const QStringList &extensions)
{
    QStringList patterns;
    for (const QString &extension : extensions) {
        if (!extension.isEmpty())
            patterns.append(QStringLiteral("*.") + extension);
    }
    if (patterns.isEmpty())
        return {};
    return {patterns.join(QLatin1Char(' '))};
}

void QtDialogs::showOpenPanel(const OpenPanelRequest &request, OpenPanelDone done)
{
    auto *panel = new QFileDialog(m_parentWindow);
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setObjectName(QStringLiteral("openPanel"));
    panel->setAcceptMode(QFileDialog::AcceptOpen);
    panel->setOption(QFileDialog::DontUseNativeDialog, !m_useNativePanels);
    if (request.kind == OpenPanelRequest::Kind::folders) {
        panel->setFileMode(QFileDialog::Directory);
        panel->setOption(QFileDialog::ShowDirsOnly, true);
    } else {
        panel->setFileMode(request.allowsMultipleSelection ? QFileDialog::ExistingFiles
                                                           : QFileDialog::ExistingFile);
        if (const QStringList filters = nameFilters(request.allowedExtensions); !filters.isEmpty())
            panel->setNameFilters(filters);
    }
    // finished fires once whichever way the panel closes; the shared flag guards against a second
    // call should the dialog be both accepted and closed.
    if (!request.confirmButtonTitle.isEmpty())
        panel->setLabelText(QFileDialog::Accept, request.confirmButtonTitle);
    startInFolder(*panel, m_paths, m_settings, Settings::Key::lastOpenPanelFolder);
    auto callback = std::make_shared<OpenPanelDone>(std::move(done));
    const auto finished = [panel, callback, settings = m_settings](int result) {
        OpenPanelDone call = std::exchange(*callback, nullptr);
        if (!call)
            return;
        const QStringList chosen = panel->selectedFiles();
        if (result == QDialog::Accepted && !chosen.isEmpty()) {
            rememberFolder(settings, Settings::Key::lastOpenPanelFolder, chosen.first());
            call(chosen);
        } else {
            call(std::nullopt);
        }
    };
    QObject::connect(panel, &QFileDialog::finished, panel, finished);
    panel->open();
}

void QtDialogs::showSavePanel(const SavePanelRequest &request, SavePanelDone done)
{
    auto *panel = new QFileDialog(m_parentWindow);
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setObjectName(QStringLiteral("savePanel"));
    panel->setAcceptMode(QFileDialog::AcceptSave);
    panel->setFileMode(QFileDialog::AnyFile);
    panel->setOption(QFileDialog::DontUseNativeDialog, !m_useNativePanels);
    if (const QStringList filters = nameFilters(request.allowedExtensions); !filters.isEmpty())
        panel->setNameFilters(filters);
    if (!request.allowedExtensions.isEmpty())
        panel->setDefaultSuffix(request.allowedExtensions.first());
    startInFolder(*panel, m_paths, m_settings, Settings::Key::lastSavePanelFolder);
    panel->selectFile(request.proposedName);
    auto callback = std::make_shared<SavePanelDone>(std::move(done));
    const auto finished = [panel, callback, settings = m_settings](int result) {
        SavePanelDone call = std::exchange(*callback, nullptr);
        if (!call)
            return;
        const QStringList chosen = panel->selectedFiles();
        if (result == QDialog::Accepted && !chosen.isEmpty()) {
            rememberFolder(settings, Settings::Key::lastSavePanelFolder, chosen.first());
            call(chosen.first());
        } else {
            call(std::nullopt);
        }
    };
    QObject::connect(panel, &QFileDialog::finished, panel, finished);
    panel->open();
}

} // namespace fiva
