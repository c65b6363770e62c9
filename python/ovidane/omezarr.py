"""Zarr stores as Dask arrays, with the voxel spacing kept in OME-Zarr (0.4) metadata.

A store is either a plain Zarr array, which carries no spacing, or an OME-Zarr group whose
`multiscales` attribute names the full-resolution array and its scale in (z, y, x) order.
"""

import dask.array as da
import zarr

# Lengths of OME-Zarr axis units in micrometres, the unit of the library's spacings.
_MICROMETRES = {"nanometer": 1e-3, "micrometer": 1.0, "millimeter": 1e3, "meter": 1e6}


def _scale(transformations, count):
    for step in transformations or ():
        if step.get("type") == "scale":
            return [float(v) for v in step["scale"]]
    return [1.0] * count


def _spacing(multiscale, dataset):
    """(x, y, z) in micrometres from the scales of the dataset and of the whole
    multiscale, which multiply; None when the last three axes are not spatial. An unknown
    unit gives NaN, which restorations refuse."""
    axes = multiscale.get("axes", [])
    scale = [a * b for a, b in zip(_scale(dataset.get("coordinateTransformations"), len(axes)),
                                   _scale(multiscale.get("coordinateTransformations"), len(axes)))]
    if len(axes) < 3 or len(scale) != len(axes):
        return None
    spacing = []
    for axis, step in zip(axes[-3:], scale[-3:]):
        if not isinstance(axis, dict) or axis.get("type") != "space":
            return None
        spacing.append(step * _MICROMETRES.get(axis.get("unit", "micrometer"), float("nan")))
    z, y, x = spacing
    return (x, y, z)


def open_ome_zarr(path):
    """The full-resolution array of the store at path as a Dask array, and its spacing
    (x, y, z) in micrometres, or None where the store records none."""
    node = zarr.open(str(path), mode="r")
    if isinstance(node, zarr.Array):
        return da.from_zarr(node), None
    multiscales = node.attrs.get("multiscales")
    if not multiscales:
        raise ValueError(f"{path} is a Zarr group without OME-Zarr 'multiscales' metadata")
    multiscale = multiscales[0]
    dataset = multiscale["datasets"][0]
    return da.from_zarr(node[dataset["path"]]), _spacing(multiscale, dataset)


def write_ome_zarr(array, path, spacing, compute=True):
    """Writes a 3D array (z, y, x) to path as an OME-Zarr group holding one full-resolution
    array "0" with its chunks, and the spacing (x, y, z) in micrometres. Replaces what was
    at path. With compute=False, returns the Dask computation that writes the pixels."""
    sx, sy, sz = (float(v) for v in spacing)
    root = zarr.open_group(str(path), mode="w")
    root.attrs["multiscales"] = [{
        "version": "0.4",
        "axes": [{"name": name, "type": "space", "unit": "micrometer"} for name in "zyx"],
        "datasets": [{"path": "0",
                      "coordinateTransformations": [{"type": "scale", "scale": [sz, sy, sx]}]}],
    }]
    return da.to_zarr(da.asarray(array), str(path), component="0", compute=compute)
