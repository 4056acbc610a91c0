// The complete interface of the library. Cloud.h is enough for most programs; the other headers are for
// programs that extend the library with their own sources, filters and writers.
#pragma once

#include <vxunpack/Cloud.h>
#include <vxunpack/FileIO.h>
#include <vxunpack/FilePointSourceManager.h>
#include <vxunpack/HilbertOrder.h>
#include <vxunpack/LASPointReader.h>
#include <vxunpack/LASPointWriter.h>
#include <vxunpack/MosaicFilter.h>
#include <vxunpack/PersistentPointSourceManager.h>
#include <vxunpack/PersistentPointSourceWriter.h>
#include <vxunpack/PointOrder.h>
#include <vxunpack/PointWriter.h>
#include <vxunpack/ProgressDelegate.h>
#include <vxunpack/QuantizeFilter.h>
#include <vxunpack/Raster.h>
#include <vxunpack/SimpleFilterFilter.h>
#include <vxunpack/TXTPointReader.h>
#include <vxunpack/TXTPointWriter.h>
#include <vxunpack/TimeOrder.h>
#include <vxunpack/VX7PointReader.h>
#include <vxunpack/VX7PointWriter.h>
