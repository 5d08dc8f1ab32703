// The dialog that asks what happened and whether to restart: a text, an edit preset with three questions, a check box, OK and Cancel.
#pragma once

#include <QDialog>

class QCheckBox;
class QTextEdit;

class GCrashDialog : public QDialog
{
public:
    GCrashDialog( );
    // What the failed process reads, once the dialog has been closed: 'O' for OK or 'C', then '1' or '0' for a restart, '1' or '0' for a
    // comment, then the comment in UTF-8: at most 1024 characters of the edit, and none when it was left as it was preset.
    QByteArray getAnswer( ) const;

private:
    QTextEdit* _edit;
    QCheckBox* _restart;
};
