#include "mwharness.h"

#include "app/mainwindow.h"
#include "log/logger.h"
#include "radar/frameformat.h"
#include "radar/radercommunicate.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMutex>
#include <QMutexLocker>
#include <QPushButton>
#include <QSettings>
#include <QTest>

namespace mw
{

// ---- pseudo-terminal -------------------------------------------------------

PtyModule::PtyModule() : pty(true) {}

QString PtyModule::portName() const
{
    const QString path = pty.path();
    return path.startsWith("/dev/") ? path.mid(5) : path;
}

void PtyModule::send(const QByteArray &bytes)
{
    // The window reads in this thread: let it run while the line is full.
    pty.write(bytes, 3000, [] { QTest::qWait(2); });
}

void PtyModule::readAvailable()
{
    pty.drain(received);
}

QByteArray PtyModule::collect(int ms)
{
    QElapsedTimer clock;
    clock.start();
    do {
        QTest::qWait(5);
        readAvailable();
    } while (clock.elapsed() < ms);
    QByteArray all = received;
    received.clear();
    return all;
}

QList<QByteArray> PtyModule::waitForFrames(int count, int timeoutMs)
{
    QList<QByteArray> frames;
    QElapsedTimer clock;
    clock.start();
    for (;;) {
        readAvailable();
        frames += takeFrames(received);
        if (frames.size() >= count || clock.elapsed() > timeoutMs)
            break;
        QTest::qWait(5);
    }
    return frames;
}

void PtyModule::drain(int ms)
{
    collect(ms);
}

QList<QByteArray> takeFrames(QByteArray &buffer)
{
    QList<QByteArray> frames;
    for (;;) {
        const int start = buffer.indexOf(QByteArray("\xFF\xEE\xDD", 3));
        if (start < 0) {
            // Keep a possible partial header at the end.
            buffer = buffer.right(2);
            break;
        }
        buffer.remove(0, start);
        if (buffer.size() < 5)
            break;
        const int length = (quint8(buffer[3]) << 8) | quint8(buffer[4]);
        const int size = length + 9;
        if (buffer.size() < size)
            break;
        frames.append(buffer.left(size));
        buffer.remove(0, size);
    }
    return frames;
}

QByteArray hexBytes(const char *text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

QString hexText(const QByteArray &bytes)
{
    return QString::fromLatin1(bytes.toHex(' ').toUpper());
}

QStringList hexTexts(const QList<QByteArray> &frames)
{
    QStringList texts;
    for (const QByteArray &f : frames)
        texts << hexText(f);
    return texts;
}

// ---- message boxes ---------------------------------------------------------

BoxAnswerer::BoxAnswerer()
{
    timer.setInterval(20);
    QObject::connect(&timer, &QTimer::timeout, [this] { poll(); });
    timer.start();
}

void BoxAnswerer::poll()
{
    auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
    if (!box || !box->isVisible())
        return;
    BoxSeen s;
    s.title = box->windowTitle();
    s.text = box->text();
    s.buttons = box->standardButtons();
    s.defaultButton =
        box->defaultButton() ? box->standardButton(box->defaultButton()) : QMessageBox::NoButton;
    seen.append(s);
    QAbstractButton *button = nullptr;
    if (!queue.isEmpty())
        button = box->button(queue.takeFirst());
    if (!button)
        button = box->escapeButton();
    if (!button && !box->buttons().isEmpty())
        button = box->buttons().first();
    if (button)
        button->click();
    else
        box->reject();
}

// ---- debug output and log --------------------------------------------------

namespace
{

QMutex captureMutex;
QStringList capturedDebug;
QStringList capturedLog;
QtMessageHandler previousHandler = nullptr;

void captureHandler(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    {
        QMutexLocker lock(&captureMutex);
        capturedDebug << message;
    }
    // Debug lines are many (every paint of a target); only pass on the rest.
    if (type != QtDebugMsg && type != QtInfoMsg && previousHandler)
        previousHandler(type, context, message);
}

} // namespace

void installDebugCapture()
{
    QtMessageHandler old = qInstallMessageHandler(captureHandler);
    if (old != captureHandler)
        previousHandler = old;
}

QStringList debugMessages()
{
    QMutexLocker lock(&captureMutex);
    return capturedDebug;
}

void clearDebugMessages()
{
    QMutexLocker lock(&captureMutex);
    capturedDebug.clear();
}

int countDebug(const QString &fragment)
{
    int n = 0;
    for (const QString &m : debugMessages())
        if (m.contains(fragment))
            ++n;
    return n;
}

int countDebugStartingWith(const QString &prefix)
{
    int n = 0;
    for (const QString &m : debugMessages())
        if (m.startsWith(prefix))
            ++n;
    return n;
}

void installLogCapture()
{
    Logger::instance().setObserver([](const QByteArray &message) {
        QMutexLocker lock(&captureMutex);
        capturedLog << QString::fromUtf8(message);
    });
}

QStringList logLines()
{
    QMutexLocker lock(&captureMutex);
    return capturedLog;
}

void clearLogLines()
{
    QMutexLocker lock(&captureMutex);
    capturedLog.clear();
}

// ---- files -----------------------------------------------------------------

QString expectedText(int language, int number)
{
    QFile file(QStringLiteral(ORV_TRANSLATION_DIR) +
               (language == 1 ? "/ORV_translate_en.txt" : "/ORV_translate_cn.txt"));
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("<missing translation file>");
    QString found;
    while (!file.atEnd()) {
        QByteArray line = file.readLine();
        if (line.endsWith('\n'))
            line.chop(1);
        if (line.endsWith('\r'))
            line.chop(1);
        if (line.size() < 9)
            continue;
        bool ok = false;
        const int n = line.left(8).toInt(&ok, 16);
        if (ok && n == number)
            found = QString::fromUtf8(line.mid(9));
    }
    return found;
}

QString enterRunDir(QTemporaryDir &root, bool withTranslations, const QByteArray &settings)
{
    static int counter = 0;
    const QString dir = root.path() + QString("/run%1").arg(++counter);
    QDir().mkpath(dir);
    if (withTranslations) {
        for (const char *name : {"ORV_translate_cn.txt", "ORV_translate_en.txt"})
            QFile::copy(QStringLiteral(ORV_TRANSLATION_DIR) + "/" + name, dir + "/" + name);
    }
    if (!settings.isEmpty()) {
        QFile ini(dir + "/ORV_conf.ini");
        if (ini.open(QIODevice::WriteOnly))
            ini.write(settings);
    }
    QDir::setCurrent(dir);
    return dir;
}

QString settingsValue(const QString &key)
{
    QSettings settings("./ORV_conf.ini", QSettings::IniFormat);
    settings.sync();
    return settings.value(key).toString();
}

QByteArray settingsFileText()
{
    {
        QSettings settings("./ORV_conf.ini", QSettings::IniFormat);
        settings.sync();
    }
    QFile ini("./ORV_conf.ini");
    if (!ini.open(QIODevice::ReadOnly))
        return QByteArray();
    return ini.readAll();
}

// ---- window ----------------------------------------------------------------

std::unique_ptr<MainWindow> makeWindow(PtyModule *module, bool show)
{
    if (module)
        qputenv("ORV_EXTRA_PORTS", module->slavePath().toLocal8Bit());
    else
        qunsetenv("ORV_EXTRA_PORTS");
    std::unique_ptr<MainWindow> window(new MainWindow);
    if (module) {
        auto *ports = child<QComboBox>(window.get(), "cbx_comm_name");
        if (ports)
            ports->setCurrentText(module->portName());
    }
    if (show) {
        window->show();
        if (!QTest::qWaitForWindowExposed(window.get()))
            return nullptr;
    }
    return window;
}

void WindowFixture::setUpCase()
{
    installDebugCapture();
    installLogCapture();
    QVERIFY(root.isValid());
}

void WindowFixture::setUpWindow()
{
    enterRunDir(root, true);
    module.reset(new PtyModule);
    QVERIFY(module->isOpen());
    boxes.reset(new BoxAnswerer);
    clearDebugMessages();
    clearLogLines();
    window = makeWindow(module.get());
    QVERIFY(window);
}

void WindowFixture::tearDownWindow()
{
    window.reset();
    QVERIFY(!RaderCommunicate::GetInstance()->bOpen);
    boxes.reset();
    module.reset();
}

bool openLink(MainWindow *window, PtyModule &module, const QString &baud)
{
    auto *ports = child<QComboBox>(window, "cbx_comm_name");
    auto *rates = child<QComboBox>(window, "cbx_comm_baudrate");
    auto *open = child<QPushButton>(window, "btn_comm_open");
    if (!ports || !rates || !open)
        return false;
    ports->setCurrentText(module.portName());
    if (ports->currentText() != module.portName())
        return false;
    rates->setCurrentText(baud);
    module.drain(20);
    QTest::mouseClick(open, Qt::LeftButton);
    // The open asks for the areas. On a loaded machine a request of the
    // previous test's window may still come first: passed over.
    const QByteArray readAreas = hexBytes("FF EE DD 00 01 06 06 DD EE FF");
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < 10000) {
        const QList<QByteArray> frames = module.waitForFrames(1, int(10000 - clock.elapsed()));
        if (frames.contains(readAreas))
            return true;
    }
    return false;
}

QByteArray areaReportFrame(const AreaWire &a0, const AreaWire &a1, const AreaWire &a2)
{
    QByteArray payload;
    int k = 0;
    for (const AreaWire &a : {a0, a1, a2}) {
        payload.append(char(++k));
        payload.append(char(a.type));
        payload.append(char(a.x1)).append(char(a.y1));
        payload.append(char(a.x1)).append(char(a.y2));
        payload.append(char(a.x2)).append(char(a.y2));
        payload.append(char(a.x2)).append(char(a.y1));
    }
    return frameformat::buildFrame(6, payload);
}

} // namespace mw
