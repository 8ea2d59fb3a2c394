// Makes the ImageJ references of the disc median and the cosmic-ray filter from MedianSrc.tif:
//   MedianDst.tif        Process > Filters > Median..., radius 10.5
//   MedianDst10-100.tif  Process > Noise > Remove Outliers..., radius 10.5, threshold 100, bright
// Argument: "<source tif>,<output folder>". ImageJ's circular kernel of radius 10.5 holds the
// offsets with dx^2 + dy^2 <= 110 (349 pixels), the same disc as our radius 10.
args = split(getArgument(), ",");
if (args.length != 2) exit("usage: -batch FilterReferences.ijm <source.tif>,<output folder>");
source = args[0];
outDir = args[1];
setBatchMode(true);
open(source);
if (bitDepth() != 16) exit("source is not 16-bit");
sourceId = getImageID();

run("Duplicate...", "title=median");
run("Median...", "radius=10.5");
saveAs("Tiff", outDir + File.separator + "MedianDst.tif");
close();

selectImage(sourceId);
run("Duplicate...", "title=outliers");
run("Remove Outliers...", "radius=10.5 threshold=100 which=Bright");
saveAs("Tiff", outDir + File.separator + "MedianDst10-100.tif");
close();

print("ImageJ " + getVersion() + " wrote MedianDst.tif and MedianDst10-100.tif to " + outDir);
