// One encode with sharp for the side-by-side benchmark.
//   node sharp-job.js FORMAT QUALITY INPUT OUTPUT [MAX_EDGE]
// FORMAT is jpeg, mozjpeg (JPEG through sharp's bundled mozjpeg), webp, avif or png (QUALITY is
// ignored for png, which is lossless).
const sharp = require(process.env.SHARP_MODULE || 'sharp');

const [format, quality, input, output, maxEdge] = process.argv.slice(2);
let pipeline = sharp(input, { limitInputPixels: false }).rotate();
if (maxEdge)
    pipeline = pipeline.resize(Number(maxEdge), Number(maxEdge), { fit: 'inside', withoutEnlargement: true });
const q = Number(quality);
const encoders = {
    jpeg: (p) => p.jpeg({ quality: q }),
    mozjpeg: (p) => p.jpeg({ quality: q, mozjpeg: true }),
    webp: (p) => p.webp({ quality: q }),
    avif: (p) => p.avif({ quality: q }),
    png: (p) => p.png(),
};
if (!encoders[format]) {
    console.error(`unknown format ${format}`);
    process.exit(2);
}
encoders[format](pipeline)
    .toFile(output)
    .catch((e) => {
        console.error(e.message);
        process.exit(1);
    });
