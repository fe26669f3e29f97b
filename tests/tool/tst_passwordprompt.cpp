// SPDX-License-Identifier: MIT
// The prompt for a password, on a pseudo-terminal that plays the user's own.
#include <brixlib/protocol/users/sauthenticationdb.h>
#include <brixlib/protocol/users/suserdata.h>

#include <shared/faketerminal.h>
#include <shared/toolprocess.h>

#include <csignal>

using namespace Talverine;
using namespace Qt::StringLiterals;

class tst_PasswordPrompt : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<FakeTerminal> m_terminal;
    std::unique_ptr<QProcess> m_process;

    QString file() const { return m_dir->filePath(u"users.json"_s); }

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_terminal = std::make_unique<FakeTerminal>();
        m_process = std::make_unique<QProcess>();
        ToolProcess().prepare(m_process.get(),
                              {u"user"_s, u"add"_s, file(), u"ann"_s, u"--home"_s, u"/"_s});
        m_terminal->attach(m_process.get());
        m_process->start();
        QVERIFY(m_process->waitForStarted());
    }

    void cleanup()
    {
        m_process->kill();
        m_process->waitForFinished();
    }

    void passwordIsAskedTwiceAndNotShown()
    {
        QVERIFY(m_terminal->screenShowing("New password of ann: ").contains("New password"));
        QVERIFY(!m_terminal->hasEcho());
        m_terminal->type("hidden one\n");
        QVERIFY(m_terminal->screenShowing("again: ").contains("again"));
        m_terminal->type("hidden one\n");
        QVERIFY(m_process->waitForFinished());
        QCOMPARE(m_process->exitCode(), 0);
        QVERIFY2(!m_terminal->screen().contains("hidden"), "the password was echoed");
        QVERIFY(m_terminal->hasEcho());
        QCOMPARE(SAuthenticationDb::fromFile(file()).value(u"ann"_s)->hashedPassword(),
                 SUserData::hashPassword(u"hidden one"_s));
    }

    void differentAnswersAreRefused()
    {
        m_terminal->screenShowing("New password of ann: ");
        m_terminal->type("one\n");
        m_terminal->screenShowing("again: ");
        m_terminal->type("two\n");
        QVERIFY(m_process->waitForFinished());
        QCOMPARE(m_process->exitCode(), 2);
        QVERIFY(m_process->readAllStandardError().contains("the two passwords differ"));
        QVERIFY(!QFile::exists(file()));
    }

    void emptyPasswordIsRefused()
    {
        m_terminal->screenShowing("New password of ann: ");
        m_terminal->type("\n");
        m_terminal->screenShowing("again: ");
        m_terminal->type("\n");
        QVERIFY(m_process->waitForFinished());
        QCOMPARE(m_process->exitCode(), 2);
        QVERIFY(!QFile::exists(file()));
    }

    void endOfInputIsNoPassword()
    {
        m_terminal->screenShowing("New password of ann: ");
        m_terminal->type("\x04");
        QVERIFY(m_process->waitForFinished());
        QCOMPARE(m_process->exitCode(), 2);
        QVERIFY(m_process->readAllStandardError().contains("no password"));
        QVERIFY(m_terminal->hasEcho());
    }

    void signalAtThePromptRestoresTheEcho_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("Ctrl-C") << SIGINT;
        QTest::newRow("SIGTERM") << SIGTERM;
    }

    void signalAtThePromptRestoresTheEcho()
    {
        QFETCH(int, signal);
        m_terminal->screenShowing("New password of ann: ");
        QVERIFY(!m_terminal->hasEcho());
        if (signal == SIGINT)
            m_terminal->type("\x03");
        else
            kill(pid_t(m_process->processId()), signal);
        QVERIFY(m_process->waitForFinished());
        QCOMPARE(m_process->exitStatus(), QProcess::CrashExit);
        QVERIFY(m_terminal->hasEcho());
        QVERIFY(!QFile::exists(file()));
    }
};

QTEST_GUILESS_MAIN(tst_PasswordPrompt)
#include "tst_passwordprompt.moc"
