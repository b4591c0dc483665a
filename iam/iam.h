#pragma once

// Everything a host needs.
#include "iam/Version.h"
#include "iam/platform/Bundle.h"
#include "iam/platform/Clock.h"
#include "iam/platform/Color.h"
#include "iam/platform/Date.h"
#include "iam/platform/KeyedArchive.h"
#include "iam/platform/LogBridge.h"
#include "iam/platform/NotificationCenter.h"
#include "iam/platform/PreferencesStore.h"
#include "iam/platform/RunLoop.h"
#include "iam/platform/URL.h"
#include "iam/platform/ZTDispatchTools.h"
#include "iam/platform/ZTSettings.h"
