// What the guides' pieces of code may use.
#pragma once

#include <iostream>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "paperloom/identity/LoginKeeper.h"
#include "paperloom/network/ContentSessionManager.h"
#include "paperloom/network/DataCoordinator.h"
#include "paperloom/network/FrontPageWarmer.h"
#include "paperloom/network/News.h"
#include "paperloom/network/ProvenanceWords.h"
#include "paperloom/operations/CheckEntitlementOperation.h"
#include "paperloom/operations/LoginOperation.h"
#include "paperloom/platform/ApplicationDirectories.h"
#include "paperloom/platform/DispatchQueue.h"
#include "paperloom/platform/Events.h"
#include "paperloom/platform/JSON.h"
#include "paperloom/platform/OperationQueue.h"
#include "paperloom/platform/URLSession.h"
#include "paperloom/testing/Captured.h"
#include "paperloom/testing/MovableClock.h"
#include "paperloom/testing/SampleDocuments.h"
#include "paperloom/testing/SampleService.h"
#include "paperloom/testing/ScriptedServer.h"
#include "paperloom/testing/TLSServer.h"
#include "paperloom/testing/TemporaryFolder.h"
