#include <QElapsedTimer>
#include <QProcessEnvironment>
#include <QTest>

#include "ai/aitest.h"
#include "ai/pythonenv.h"

// The interpreter search, the NumPy check and the dependency installer, with small fake
// interpreters on a test PATH.

using AiTest::Sandbox;

class TestPythonEnv : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void findInterpreter_data();
    void findInterpreter();
    void numpyCheck_data();
    void numpyCheck();
    void installer_data();
    void installer();
};

void TestPythonEnv::findInterpreter_data()
{
    QTest::addColumn<QStringList>("programs"); // name=bash body
    QTest::addColumn<QString>("expected");
    const QString ok = QStringLiteral("echo Python 3.11.2");
    QTest::newRow("python first") << QStringList{"python=" + ok, "python3=" + ok} << "python";
    QTest::newRow("python missing") << QStringList{"python3=" + ok} << "python3";
    QTest::newRow("python fails") << QStringList{"python=exit 1", "python3=" + ok} << "python3";
    QTest::newRow("python hangs") << QStringList{"python=exec /bin/sleep 30", "python3=" + ok}
                                  << "python3";
    QTest::newRow("none") << QStringList{} << "";
}

void TestPythonEnv::findInterpreter()
{
    QFETCH(QStringList, programs);
    QFETCH(QString, expected);
    Sandbox box;
    for (const QString& p : programs)
        box.program(p.section('=', 0, 0), p.section('=', 1).toUtf8());
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(PythonEnv::findPythonInterpreter(), expected);
    QVERIFY(clock.elapsed() < 4000); // a hanging candidate costs its 2 s, no more
}

void TestPythonEnv::numpyCheck_data()
{
    QTest::addColumn<int>("checkExit");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<QString>("pipCall");
    QTest::newRow("numpy 1") << 0 << QStringList{} << "";
    QTest::newRow("numpy 2") << 1 << QStringList{"Fixing NumPy version...|#ffb040", "NumPy fixed.|#50d898"}
                             << "-m pip install numpy<2.0 -q";
}

void TestPythonEnv::numpyCheck()
{
    QFETCH(int, checkExit);
    QFETCH(QStringList, log);
    QFETCH(QString, pipCall);
    Sandbox box;
    const QString calls = box.path("calls");
    box.program("py", QStringLiteral("echo \"$*\" >> %1\n[ \"$1\" = -c ] && exit %2\nexit 0\n")
                          .arg(calls).arg(checkExit).toUtf8());
    QStringList logged;
    PythonEnv::checkNumpyVersion("py", [&](const QString& t, const QString& c) { logged << t + '|' + c; });
    QCOMPARE(logged, log);
    QFile f(calls);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QStringList recorded = QString::fromUtf8(f.readAll()).split('\n', Qt::SkipEmptyParts);
    QCOMPARE(recorded.value(0).left(15), QStringLiteral("-c import numpy"));
    QCOMPARE(recorded.value(1), pipCall);
}

void TestPythonEnv::installer_data()
{
    QTest::addColumn<QStringList>("interpreters"); // names linked to the stub
    QTest::addColumn<QStringList>("env");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("lastLine");
    QTest::addColumn<QStringList>("calls"); // expected among the recorded calls, in order
    const QString install = "-m pip install%1 --upgrade --progress-bar off ultralytics opencv-python numpy<2.0";
    QTest::newRow("no python") << QStringList{} << QStringList{} << 1
                               << "ERROR:Python 3 was not found." << QStringList{};
    QTest::newRow("no network") << QStringList{"python3"} << QStringList{"STUB_NET=1"} << 3
                                << "ERROR:Cannot reach pypi.org." << QStringList{"bin/python3 --version"};
    QTest::newRow("own environment") << QStringList{"python", "python3"} << QStringList{} << 0
                                     << "INFO:All AI dependencies are installed for python."
                                     << QStringList{"bin/python " + install.arg("")};
    QTest::newRow("user site") << QStringList{"python3"} << QStringList{"STUB_MODE=user"} << 0
                               << "INFO:All AI dependencies are installed for python3."
                               << QStringList{"bin/python3 " + install.arg(" --user")};
    QTest::newRow("externally managed")
        << QStringList{"python3"} << QStringList{"STUB_MODE=managed"} << 0
        << "INFO:All AI dependencies are installed for $ENV/bin/python."
        << QStringList{"bin/python3 -m venv $ENV", "$ENV/bin/python " + install.arg("")};
    QTest::newRow("pip fails") << QStringList{"python3"} << QStringList{"STUB_PIP=1"} << 4
                               << "ERROR:pip could not install the packages" << QStringList{};
}

void TestPythonEnv::installer()
{
    QFETCH(QStringList, interpreters);
    QFETCH(QStringList, env);
    QFETCH(int, exitCode);
    QFETCH(QString, lastLine);
    QFETCH(QStringList, calls);
    Sandbox box;
    for (const char* tool : {"mkdir", "dirname", "readlink", "ln", "cp"})
        box.link(tool, QStringLiteral("/usr/bin/") + tool);
    for (const QString& name : interpreters + QStringList{"pip", "pip3"})
        box.link(name, AI_TEST_DIR "/stubs/python");
    QProcessEnvironment environment;
    environment.insert("PATH", box.bin());
    environment.insert("HOME", box.path("home"));
    environment.insert("STUB_LOG", box.path("calls"));
    for (const QString& e : env)
        environment.insert(e.section('=', 0, 0), e.section('=', 1));
    QProcess installer;
    installer.setProcessEnvironment(environment);
    installer.start("/bin/bash", {AI_SCRIPTS_DIR "/install_python_deps_mac.sh"});
    QVERIFY(installer.waitForFinished(20000));
    const QStringList out = QString::fromUtf8(installer.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    const QString venv = box.path("home/.local/share/brindle/python-env");
    QCOMPARE(installer.exitCode(), exitCode);
    QVERIFY2(out.last().startsWith(QString(lastLine).replace("$ENV", venv)), qPrintable(out.last()));

    QFile f(box.path("calls"));
    f.open(QIODevice::ReadOnly);
    const QString recorded = QString::fromUtf8(f.readAll());
    qsizetype at = 0;
    for (QString call : calls) {
        at = recorded.indexOf(call.replace("$ENV", venv), at);
        QVERIFY2(at >= 0, qPrintable(call + "\nnot in\n" + recorded));
    }
    QVERIFY(!recorded.contains("break-system-packages") && !recorded.contains("bin/pip"));
    if (exitCode != 0)
        QVERIFY(!recorded.contains("pip install") || env.contains("STUB_PIP=1"));
    if (env.contains("STUB_MODE=managed"))
        QCOMPARE(QFile::symLinkTarget(box.path("home/.local/bin/python")), venv + "/bin/python");
}

QTEST_GUILESS_MAIN(TestPythonEnv)
#include "tst_pythonenv.moc"
