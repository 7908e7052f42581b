// The complete public interface of libKvSelectContextAids.
#pragma once

#include "aids/Errors.h"
#include "aids/History.h"
#include "aids/Inspect.h"
#include "aids/Items.h"
#include "aids/Reclaim.h"
#include "aids/Schemes.h"
#include "aids/Watched.h"
