"""Read and write point clouds: .vxl, LAS, LAZ, BPF and text.

>>> import vxl
>>> with vxl.open("survey.vxl") as cloud:
...     points = cloud.read(box=(500000, 500090, 4100000, 4100040), channels=["Z", "ClassId"])
>>> points.num_points
1199
>>> points["Z"].max()
164.46

Channels are NumPy arrays of the type that the file has. A channel is named by its own name, or by its name in
LAS or PDAL (``"Classification"``, ``"return_number"``), ignoring case. Coordinates are in the units of the
cloud's coordinate system.
"""

from ._cloud import Bounds, Box, Cloud, Channel, Channels, CRS, Metadata, Stats, open
from ._errors import ArgumentError, Cancelled, ChannelError, Error, FileError, FileNotFound, VxlWarning
from ._raster import Raster, RasterGrid, RasterWriter, raster
from ._table import Table
from ._threads import set_threads
from ._vxl import version as __version__
from ._write import write

__all__ = [
    "ArgumentError", "Bounds", "Box", "CRS", "Cancelled", "Channel", "ChannelError", "Channels", "Cloud",
    "Error", "FileError", "FileNotFound", "Metadata", "Raster", "RasterGrid", "RasterWriter", "Stats", "Table",
    "VxlWarning", "__version__", "open", "raster", "set_threads", "write",
]
