// The services that a client runs, one line each, and the shipped skin.
#pragma once

#include "client/app/GClientPlatform.h"

std::vector<GServiceRow> GClientServicesGet( );
// The skin of "template.xml" in the working directory.
std::unique_ptr<IGClientSkin> GClientSkinOpen( GInstance* instance );
