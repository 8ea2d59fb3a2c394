// Times ImageJ's Median (radius 10.5) and Remove Outliers (radius 10.5, threshold 100, bright)
// on the frame that filter_bench uses, twice each:
//   build/bench/filter_bench --write_frame=/tmp/frame2048.tif
//   xvfb-run -a java -jar /usr/share/java/ij.jar -batch bench/imagej/FilterTiming.ijm /tmp/frame2048.tif
src = getArgument();
setBatchMode(true);
open(src);
id = getImageID();
for (i = 0; i < 2; i++) {
  selectImage(id);
  run("Duplicate...", "title=median");
  t0 = getTime();
  run("Median...", "radius=10.5");
  t1 = getTime();
  print("Median 10.5: " + (t1 - t0) + " ms");
  close();
  selectImage(id);
  run("Duplicate...", "title=outliers");
  t0 = getTime();
  run("Remove Outliers...", "radius=10.5 threshold=100 which=Bright");
  t1 = getTime();
  print("Remove Outliers 10.5/100: " + (t1 - t0) + " ms");
  close();
}
print("ImageJ " + getVersion() + ", threads: " + call("ij.Prefs.getThreads"));
