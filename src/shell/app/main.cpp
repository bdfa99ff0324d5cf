// The desktop application's entry: one running instance per user, the objects in the order of
// launch, then Qt's event loop.
#include "platform/console.h"
#include "platform/rotating_file_log_sink.h"
#include "shell/app/lumivesper_app.h"
#include "shell/app/qt_dialogs.h"
#include "shell/app/qt_main_thread.h"
#include "shell/app/single_instance.h"
#include "shell/app/terminal_interrupts.h"
#include "shell/update_controller.h"
#include "ui/symbol_icons.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>
#include <QIcon>

#include <exception>
#include <iostream>
#include <memory>

namespace {

using namespace lumivesper;

QStringList absolutePaths(const QStringList& arguments) {
    // The running instance may have another working folder.
    QStringList paths;
    for (const QString& argument : arguments)
        paths << QFileInfo(argument).absoluteFilePath();
    return paths;
}

void reportRefused(const QStringList& files) {
    for (const QString& file : files)
        std::cerr << "lumivesper: not a project package (.lvesper): " << file.toStdString() << '\n';
}

int run(QApplication& qt) {
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Makes dynamic wallpapers."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("project"),
                                 QStringLiteral("Project packages (.lvesper) to open."),
                                 QStringLiteral("[PROJECT...]"));
    parser.process(qt);
    const QStringList files = absolutePaths(parser.positionalArguments());

    shell::SingleInstance instance;
    if (instance.handOver(files))
        return 0;
    // The window's diagnostics go to a log file, not to whatever terminal started it.
    const platform::ScopedLogSink log(std::make_shared<platform::RotatingFileLogSink>(
        platform::RotatingFileLogSink::standardFolder()));
    if (!instance.listen())
        platform::consoleLine("⚠️ Could not listen for later launches; they will open windows "
                              "of their own");

    ui::installFallbackIconTheme();
    QApplication::setWindowIcon(
        QIcon::fromTheme(QStringLiteral("lumivesper"), QIcon(QStringLiteral(":/lumivesper.svg"))));

    shell::QtMainThread mainThread;
    shell::QtDialogs dialogs;
    shell::LumivesperApp::Options options;
    options.makeUpdater = [&mainThread](settings::UpdaterDelegate& delegate) {
        return std::make_unique<shell::UpdateCheckerController>(delegate, mainThread);
    };
    options.exit = [] { QCoreApplication::exit(0); };
    shell::LumivesperApp app(dialogs, mainThread, std::move(options));

    QObject::connect(&instance, &shell::SingleInstance::filesReceived, &qt,
                     [&app](const QStringList& received) {
                         reportRefused(app.openFromOutside(received));
                     });
    shell::TerminalInterrupts interrupts;
    QObject::connect(&interrupts, &shell::TerminalInterrupts::interrupted, &qt,
                     [&app] { app.requestQuit(); });

    reportRefused(app.launch(files));
    dialogs.setWindow(&app.window());
    return QApplication::exec();
}

} // namespace

int main(int argc, char** argv) {
    QApplication qt(argc, argv);
    QApplication::setApplicationName(QStringLiteral("lumivesper"));
    QApplication::setApplicationDisplayName(QStringLiteral("Lumivesper AI"));
    QApplication::setApplicationVersion(QStringLiteral(LUMIVESPER_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("ai.lumivesper.Lumivesper"));
    try {
        return run(qt);
    } catch (const std::exception& error) {
        std::cerr << "lumivesper: " << error.what() << '\n';
    } catch (...) {
        std::cerr << "lumivesper: unexpected failure\n";
    }
    return 1;
}
