// The tray icon on the toolkit.
#pragma once

#include "platform/GIcon.h"
#include "platform/tray/GBalloonWindow_Qt.h"
#include "platform/tray/GBalloon_DBus.h"

#include <QElapsedTimer>
#include <QIcon>
#include <QSystemTrayIcon>

#include <array>

struct GIconRecord : public QSystemTrayIcon
{
    explicit GIconRecord( IGIconListener* listener );

    IGIconListener* listener;
    std::array<QIcon, 6> icons;
    int current = GIS_PUBLIC_OFFLINE;
    GWString toolTip;
    GWString bubble;
    int cookie = 0;
    QElapsedTimer lastClick; // Valid while another one would make it a double click.
    GBalloon balloon;
    GBalloonWindow window;
};
