// The camera through the browser: a live view and one still taken from it as a JPEG file.
import { h } from './api.js';

export function openCamera() {
  return new Promise(async (resolve) => {
    let stream;
    try {
      stream = await navigator.mediaDevices.getUserMedia({ video: true });
    } catch (error) {
      resolve(null);
      return;
    }
    const video = h('video', { autoplay: true, playsinline: true, muted: true });
    video.srcObject = stream;
    const finish = (file) => {
      stream.getTracks().forEach((t) => t.stop());
      dialog.close();
      dialog.remove();
      resolve(file);
    };
    const take = () => {
      const canvas = document.createElement('canvas');
      canvas.width = video.videoWidth;
      canvas.height = video.videoHeight;
      canvas.getContext('2d').drawImage(video, 0, 0);
      canvas.toBlob((blob) => finish(new File([blob], 'camera.jpg', { type: 'image/jpeg' })), 'image/jpeg', 0.92);
    };
    const dialog = h('dialog', { class: 'camera' }, h('h2', {}, 'Camera'), video,
      h('div', { class: 'buttons' },
        h('button', { type: 'button', onclick: () => finish(null) }, 'Cancel'),
        h('button', { type: 'button', class: 'primary', onclick: take }, 'Take Photo')));
    dialog.addEventListener('cancel', () => finish(null));
    document.body.append(dialog);
    dialog.showModal();
  });
}
